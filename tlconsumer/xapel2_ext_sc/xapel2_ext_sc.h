// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Shading correction for the data stream of a camera: the one class that applications use. C++11.

#pragma once

#include "xapel2/XapelDevice.h"
#include "xapel2/XapelExceptions.h"
#include "xapel2/XapelString.h"

class CVexoShadingObj;

namespace XAPEL2 {
namespace Ext {
namespace Sc {

/// Corrects every filled buffer that the application fetches from a device, in place, before the application gets it.
///
/// A dark and a light reference give each pixel an offset and a gain. They are recorded from the stream or from images
/// handed in, or loaded from files; applied to the camera's format and size; and used while correction is enabled.
///
///     XAPEL2::Ext::Sc::Shading shading(pDevice);
///     shading.ReferenceLoad(false, "dark.tif");
///     shading.ReferenceLoad(true, "light.tif");
///     shading.ReferenceApply();
///     shading.SetEnable(true);      // from here on every fetched buffer is corrected
///
/// What a user must know:
/// 1. Recording from the stream is ReferenceStart, SetEnable(true), fetch N frames, ReferenceEnd. Start switches the
///    correction off, and only enabled objects see the stream. While recording, frames are passed on unchanged.
/// 2. A fetch that waits while correction is switched on or off (also by load, start, clear and the destructor) returns
///    GC_ERR_ABORT (-1012). No frame is lost: repeat the fetch.
/// 3. Two enabled objects on one device correct every buffer twice.
/// 4. A reference belongs to its sensor, where the host's image processor knows the place of each frame (the stand-in
///    does): one of the whole sensor serves every region, binning and mirroring. With a processor that does not, record
///    anew when these change. And ReferenceApply holds up fetches for as long as it takes.
///
/// A buffer that cannot be corrected (incomplete, without an image, of another format or size than applied) is passed
/// on as it is; the host's trace says so.
///
/// Errors are host exceptions (XAPEL2::Exceptions): each operation names its own. Besides them may come host exceptions
/// of a node access, unchanged, std::bad_alloc, and std::system_error of a lock.
///
/// @threads Operations may be called from any thread, beside the stream's fetches, in any order. Only one at a time may
/// run of SetEnable, ReferenceLoad, ReferenceStart, ReferenceClear and the destructor, and no other operation beside
/// the destructor. None may be called from within an intercepted stream call.
class __attribute__((visibility("default"))) Shading {
public:
    /// The filter that a value belongs to.
    enum eFilterType : int {
        eBoxFilter = 0,    ///< mean over a square window
        eMedianFilter = 1  ///< median over a square window, before the box filter
    };

    /// Hooks the device's first data stream, opening it when it is closed. Correction is off.
    /// @param[in] device  an opened device; borrowed, must stay open until this object is destroyed.
    /// @throws Xapel_InvalidParameterException  device is null.
    /// @throws Xapel_NotAvailableException      the device has no data stream.
    /// @throws Xapel_ObjectInvalidException     the host refused a hook; those already set have been taken back.
    explicit Shading(XAPEL2::Device* device);

    /// Switches correction off, ends a waiting fetch (see 2. above), frees the references; with the device's last
    /// object, removes the hooks. Returns when no intercepted call uses this object any more. Throws nothing.
    ~Shading();

    Shading(const Shading&) = delete;
    Shading& operator=(const Shading&) = delete;

    /// Loads a reference from a file. Switches correction off first, also when the operation then fails.
    /// @param[in] light  true: the light reference, false: the dark one.
    /// @param[in] file   name of the file; copied.
    /// @throws Xapel_NotAvailableException  the image processor lacks a shading node; nothing was loaded.
    /// @throws Xapel_ErrorException         the file cannot be used, or a recording runs; the former reference stays.
    void ReferenceLoad(bool light, XAPEL2::String file);

    /// Starts the recording of a reference: from now on images of the stream (once enabled) and of ReferenceAdd are
    /// averaged. Switches correction off first, also when the operation then fails.
    /// @param[in] light  true: a light reference, false: a dark one.
    /// @throws Xapel_NotAvailableException   the image processor lacks a shading node.
    /// @throws Xapel_ResourceInUseException  the image processor refused, as when a recording runs.
    void ReferenceStart(bool light);

    /// Ends the recording: writes the reference to a file and keeps it. Correction stays on or off as it is.
    /// @param[in] file  name of the file; copied. Replaced when it exists.
    /// @throws Xapel_NotAvailableException  the image processor lacks a shading node.
    /// @throws Xapel_ErrorException         no recording, no image, or the file cannot be written; a running recording
    ///                                      goes on and can be ended again.
    void ReferenceEnd(XAPEL2::String file);

    /// Makes the references effective for the camera's present pixel format, width and height, with the present filter
    /// values. Fetches wait meanwhile. Correction stays on or off as it is.
    /// @throws Xapel_NotAvailableException  the image processor lacks a shading node.
    /// @throws Xapel_ErrorException         no reference, or one of another format or size.
    void ReferenceApply();

    /// Forgets the references, what was applied, and a running recording; filter values stay. Switches correction off
    /// first, also when the operation then fails.
    /// @throws Xapel_NotAvailableException  the image processor lacks a shading node.
    /// @throws Xapel_ErrorException         the image processor refused.
    void ReferenceClear();

    /// Hands in an image: while recording it is added to the reference; otherwise it is corrected in place, or left as
    /// it is where nothing is applied for its format and size. Correction of the stream stays as it is.
    /// @param[in]     pixelFormat  PFNC name, such as "Mono12"; copied.
    /// @param[in]     width        pixels.
    /// @param[in]     height       pixels.
    /// @param[in,out] data         the image without line padding; borrowed for the call.
    /// @param[in]     size         bytes at data.
    /// @return 0.
    /// @throws Xapel_NotAvailableException      the image processor lacks a shading node.
    /// @throws Xapel_InvalidParameterException  the image was refused; neither it nor the recording was touched.
    int ReferenceAdd(XAPEL2::String pixelFormat, unsigned long long width, unsigned long long height, void* data,
                     unsigned long long size);

    /// Switches the correction of the stream on or off. Ends a waiting fetch (see 2. above). Switching off returns when
    /// no buffer is being corrected any more. Repeating it is harmless. When the host fails while the stream is joined
    /// or left, the operation returns all the same, correction stays as it was, and the host's trace says so at
    /// level 2.
    /// @throws Xapel_NotAvailableException  the image processor lacks a shading node.
    /// @throws Xapel_ErrorException         the image processor refused; correction is then off.
    void SetEnable(bool enable);

    /// Sets a filter for one reference; effective at the next ReferenceApply. Never waits for an image.
    /// @param[in] type   the filter.
    /// @param[in] light  true: for the light reference, false: for the dark one.
    /// @param[in] value  radius r in pixels, window (2r+1) x (2r+1); 0 is off; limits: GetFilterMin, GetFilterMax.
    /// @throws Xapel_NotAvailableException      the image processor has no filters.
    /// @throws Xapel_InvalidParameterException  type is not a filter.
    /// @throws Xapel_ErrorException             value is out of range; the former value stays.
    void SetFilter(eFilterType type, bool light, unsigned int value);

    /// The value of a filter, in pixels. Never waits for an image.
    /// @throws Xapel_NotAvailableException      the image processor has no filters.
    /// @throws Xapel_InvalidParameterException  type is not a filter.
    int GetFilter(eFilterType type, bool light);
    int GetFilterMin(eFilterType type, bool light);  ///< The least value of a filter; otherwise as GetFilter.
    int GetFilterMax(eFilterType type, bool light);  ///< The greatest value of a filter; otherwise as GetFilter.

private:
    CVexoShadingObj* m_pShadingObj;  // owned
};

}  // namespace Sc
}  // namespace Ext
}  // namespace XAPEL2
