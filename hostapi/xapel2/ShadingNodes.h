// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The contract between whoever corrects images and the image processor: its shading nodes, the commands written to
// them, the parameters behind the selector.
//
// A command is a transaction: write its inputs, write its code to the command node, read the status node. The nodes are
// one set of registers, so two transactions on one processor must not mix; the two parameter nodes stand apart.

#pragma once

#include <cstdint>

namespace XAPEL2 {

// Inputs of a command.
constexpr char SHADING_NODE_PIXEL_FORMAT[] = "ShadingPixelFormat";  ///< text, PFNC name
constexpr char SHADING_NODE_WIDTH[] = "ShadingWidth";               ///< integer, pixels
constexpr char SHADING_NODE_HEIGHT[] = "ShadingHeight";             ///< integer, pixels
constexpr char SHADING_NODE_BUFFER_SIZE[] = "ShadingBufferSize";    ///< integer, bytes at the buffer's address
constexpr char SHADING_NODE_BUFFER[] = "ShadingBuffer";             ///< integer, address of the image
constexpr char SHADING_NODE_FILE_NAME[] = "ShadingBrwFilename";     ///< text, name of a reference file

constexpr char SHADING_NODE_COMMAND[] = "ShadingCommand";  ///< integer, an eShadingCommand; writing it runs the command
constexpr char SHADING_NODE_STATUS[] = "ShadingStatus";    ///< integer, of the last command; negative: a GenTL code

// A processor may lack these two.
constexpr char SHADING_NODE_PARAM_SELECTOR[] = "ShadingParamSelector";  ///< enumeration of the parameters' names
constexpr char SHADING_NODE_PARAM_VALUE[] = "ShadingParamValue";        ///< integer with limits, of the one selected

/// What "ShadingCommand" runs, and the inputs that it reads.
enum eShadingCommand : int64_t {
    eCommandEnable = 1,      ///< none
    eCommandProcess = 2,     ///< format, size and buffer: records the image, or corrects it in place
    eCommandApply = 3,       ///< format and size
    eCommandClear = 4,       ///< none
    eCommandLoadDark = 5,    ///< file name
    eCommandLoadLight = 6,   ///< file name
    eCommandStartDark = 7,   ///< none
    eCommandStartLight = 8,  ///< none
    eCommandEnd = 9,         ///< file name
};

// Parameters: the radius of a filter of one reference, in pixels; 0 is off.
constexpr char SHADING_PARAM_BOX_LIGHT[] = "BoxFilterLight";        ///< box, of the light reference
constexpr char SHADING_PARAM_BOX_DARK[] = "BoxFilterDark";          ///< box, of the dark reference
constexpr char SHADING_PARAM_MEDIAN_LIGHT[] = "MedianFilterLight";  ///< median, of the light reference
constexpr char SHADING_PARAM_MEDIAN_DARK[] = "MedianFilterDark";    ///< median, of the dark reference

// Limits of each parameter. The processor tells them too; whoever has one asks it.
constexpr int64_t SHADING_PARAM_MIN = 0;   ///< off
constexpr int64_t SHADING_PARAM_MAX = 31;  ///< pixels

}  // namespace XAPEL2
