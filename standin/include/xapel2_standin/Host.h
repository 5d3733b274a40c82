// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What an application does with the stand-in host beyond the declarations in hostapi/: devices, streams, buffers.
//
// Terms, codes and rules are those of GenTL. Stream operations return GenTL codes (0 or GC_ERR_...); an exception of a
// hook passes through them. Device pointers and stream pointers belong to the host; one that is no longer alive is
// refused, never dereferenced.
//
// @threads every operation: any thread.

#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "xapel2/XapelDevice.h"
#include "xapel2/XapelExceptions.h"
#include "xapel2/XapelExport.h"
#include "xapel2/XapelNodes.h"
#include "xapel2/XapelString.h"
#include "xapel2_standin/GenTL.h"

namespace XAPEL2 {

/// Writes the text.
XAPEL2_HOST_API std::ostream& operator<<(std::ostream& rOut, const String& rText);

namespace StandIn {

/// Line of the throw in the file that the exception names.
XAPEL2_HOST_API unsigned lineNumber(const Exceptions::IException& rException);

/// A buffer of a data stream, as announcing and fetching hand it out.
typedef void* BufferHandle;

/// Time-out in ms that never expires.
constexpr unsigned long long TIMEOUT_INFINITE = ~0ULL;

/// Buffer information of the stand-in's own: the name that the source gives the frame (STRING).
constexpr int32_t BUFFER_INFO_STANDIN_FRAME_NAME = BUFFER_INFO_CUSTOM_ID + 1;

/// Buffer information of the stand-in's own: what became of the frame's image (UINT64, an eCorrection of Answers.h),
/// and why it is not corrected (STRING; empty when it is). Kept from the fetch until the buffer is queued again. An
/// image that is handed to a processor later, by its address in the buffer (ReferenceAdd), counts as well. Of several
/// processors, one that corrects the image decides; else the last one. Where not all of them corrected it, the text
/// says what the last of the others said.
constexpr int32_t BUFFER_INFO_STANDIN_CORRECTION = BUFFER_INFO_CUSTOM_ID + 2;
constexpr int32_t BUFFER_INFO_STANDIN_CORRECTION_REASON = BUFFER_INFO_CUSTOM_ID + 3;  ///< the text

/// Stream information of the stand-in's own: incomplete buffers since the acquisition started (UINT64).
constexpr int STREAM_INFO_STANDIN_NUM_INCOMPLETE = 1001;

/// A device that can be opened.
struct DeviceInfo {
    std::string strId;           ///< what openDevice takes
    std::string strDescription;  ///< one line for people
};

/// The devices that can be opened without further knowledge: the simulated camera, and the real cameras that are found
/// within two seconds or so (docs/cameras.md). Nothing else looks for cameras.
XAPEL2_HOST_API std::vector<DeviceInfo> enumerateDevices();

/// Opens a device with one closed data stream. It belongs to the host until closeDevice.
/// @param[in] strId  "sim", "sim:SEED", "sim:SEED?width=640&height=480&format=Mono8", "replay:DIR",
///        "replay:DIR?format=BayerRG8", or "aravis:ID" for a real camera: an identifier that enumerateDevices() lists,
///        or the camera's network address; behind it "?ExposureTime=5000&Gain=1.5", nodes of the camera, written in
///        this order, which stay so until something else writes them. Settings of the simulated camera, in any order,
///        are those that its nodes start with: width, height, format, exposure (us), gain (percent), offsetx, offsety,
///        binning (1, 2 or 4, both ways), reversex, reversey (0 or 1), fps (Hz); and sensorwidth, sensorheight
///        (pixels), without which the sensor is just as large as offset, size and binning want. Its pattern is a
///        function of seed and place on the sensor; fall-off and dust spread over the sensor's size. A replayed format
///        is given where the files cannot say it (see openFiles).
/// @throws Exceptions::Xapel_InvalidParameterException  the text names no device or carries a bad setting.
/// @throws Exceptions::Xapel_NotAvailableException      the folder or one of its files cannot be used, the camera
///                                                      is not there, or this build knows no real cameras; names it.
/// @throws Exceptions::Xapel_AccessDeniedException      another program has the camera, or a setting is read-only.
/// @throws Exceptions::Xapel_ErrorException             the camera fails while a setting is written.
XAPEL2_HOST_API Device* openDevice(const std::string& strId);

/// Opens image files as a camera: its scene Scene has exactly these frames in this order, the others have none. Files
/// whose name ends in .pgm or .ppm are binary pixmaps, all others TIFF; all have one size and format, which cannot be
/// changed.
/// @param[in] vecFiles   their names, one or more.
/// @param[in] strFormat  PFNC name, for what the files cannot say: a filter array, or fewer significant bits than their
///            samples have room for. A packed format stands for the unpacked one of the same samples. Empty: Mono8,
///            Mono10, Mono12, Mono14 or Mono16 by the maxval of a PGM; Mono8, Mono16 or RGB8 as a TIFF says. A frame
///            with a sample above the format's full scale cannot be produced.
/// @throws Exceptions::Xapel_InvalidParameterException  no file, or no such format.
/// @throws Exceptions::Xapel_NotAvailableException      a file cannot be used, or differs from the first: names both
///                                                      with size and format.
XAPEL2_HOST_API Device* openFiles(const std::vector<std::string>& vecFiles, const std::string& strFormat = "");

/// Closes the device, its streams (their close hooks do not run) and drops their hooks; waiting fetches end with -1012.
/// @return GC_ERR_SUCCESS, or GC_ERR_INVALID_HANDLE when the device is not open.
XAPEL2_HOST_API int closeDevice(Device* pDevice);

/// The remote nodes of the device, borrowed until it is closed: DeviceModelName (read-only), PixelFormat, Width,
/// Height, OffsetX, OffsetY, AcquisitionFrameRate (Hz, 0 = as fast as buffers come);
/// of a simulated camera DeviceSerialNumber (read-only, by its seed), SensorWidth, SensorHeight (read-only),
/// ExposureTime (us), Gain (percent), BinningHorizontal, BinningVertical (1, 2 or 4 pixels; another value sets size and
/// offset to the whole sensor), BinningHorizontalMode, BinningVerticalMode (Average, Sum), ReverseX, ReverseY (0 or 1;
/// offsets count within the mirrored image). Its filter array stays where it is on the sensor, so that an odd offset or
/// a mirror changes PixelFormat. Offsets can be changed while it streams. StandInScene (Dark, Light, Scene),
/// StandInFrame (index of the next frame of the scene; writing the scene sets it to 0) and StandInFrameCount (frames of
/// the scene, 0 = without end). Null when the device is not open.
///
/// A real camera has DeviceModelName, DeviceSerialNumber and those that it knows of PixelFormat, Width, Height,
/// OffsetX, OffsetY, BinningHorizontal, BinningVertical, ReverseX, ReverseY (0 or 1), ExposureTime (us), Gain (in its
/// own unit, often dB) and AcquisitionFrameRate. The last three are read as integers rounded, as texts in full;
/// SetValue takes decimals. An access may take seconds when the camera does not answer, and then throws
/// Xapel_ErrorException.
XAPEL2_HOST_API NodeMap* remoteNodes(Device* pDevice);

/// A node as it stands.
struct NodeInfo {
    std::string strName;                    ///< as GetNode takes it
    std::string strValue;                   ///< as GetString gives it; empty where strError is not
    bool bWritable = false;                 ///< it can be written, though perhaps not while the camera streams
    bool bNumber = false;                   ///< it has limits
    int64_t iMin = 0;                       ///< least value of a number, decimal ones rounded
    int64_t iMax = 0;                       ///< greatest value of a number, decimal ones rounded
    std::vector<std::string> vecEntries{};  ///< of an enumeration; empty where the camera does not tell
    std::string strError{};                 ///< why it cannot be read; empty: it can
};

/// The remote nodes of the device one by one, in the camera's order. None when the device is not open. An access may
/// take as long as with remoteNodes.
XAPEL2_HOST_API std::vector<NodeInfo> describeNodes(Device* pDevice);

/// The device's first data stream, null when the device is not open.
XAPEL2_HOST_API DataStream* firstDataStream(Device* pDevice);

/// Opens a data stream, then runs the device's open hook.
/// @return what the hook returned (the stream is open then all the same); GC_ERR_RESOURCE_IN_USE when it is open
///         already (DataStream::Open takes that for done), GC_ERR_INVALID_HANDLE when it is none of this device.
XAPEL2_HOST_API int openDataStream(Device* pDevice, DataStream* pStream);

/// Closes a data stream through the device's close hook: stops the acquisition, ends waiting fetches with -1012,
/// revokes the buffers, drops the stream's hooks.
XAPEL2_HOST_API int closeDataStream(Device* pDevice, DataStream* pStream);

/// Bytes of one frame with the camera's present settings; 0 when the stream is not open.
XAPEL2_HOST_API std::size_t payloadSize(DataStream* pStream);

/// Allocates a buffer and announces it. Freed by revoking it or closing the stream.
XAPEL2_HOST_API int allocAndAnnounceBuffer(DataStream* pStream, std::size_t nBytes, BufferHandle* phBuffer);

/// Announces memory of the caller, which must stay until the buffer is revoked or the stream closed, and until every
/// fetch of the stream that began before that has returned: a frame may be on its way through a hook.
XAPEL2_HOST_API int announceBuffer(DataStream* pStream, void* pMemory, std::size_t nBytes, BufferHandle* phBuffer);

/// Takes a buffer back. GC_ERR_RESOURCE_IN_USE while the camera is filling it; a real camera has all that are queued
/// until its acquisition ends.
XAPEL2_HOST_API int revokeBuffer(DataStream* pStream, BufferHandle hBuffer);

/// Hands a buffer to the camera to be filled. GC_ERR_RESOURCE_IN_USE when it is queued or waits for a fetch already,
/// GC_ERR_BUFFER_TOO_SMALL when it does not take the present payload.
XAPEL2_HOST_API int queueBuffer(DataStream* pStream, BufferHandle hBuffer);

/// Starts the camera. It fills queued buffers in order until the acquisition is stopped or nFrames are produced. The
/// image settings of the camera are locked meanwhile, all but the offsets of a simulated one. A paced camera that finds
/// no buffer queued skips its turn, which counts as an underrun; no frame of the scene is lost by it. A frame that
/// cannot be produced is traced and delivered incomplete, with nothing filled. GC_ERR_RESOURCE_IN_USE while an
/// acquisition of the device runs.
///
/// A real camera writes its frames straight into the queued buffers. Where it cannot start, a trace says why:
/// GC_ERR_NOT_AVAILABLE for a pixel format that the stand-in does not know, GC_ERR_IO, GC_ERR_ACCESS_DENIED. A camera
/// that is lost on the way ends its acquisition with a trace: fetches that find no frame return GC_ERR_IO, or
/// GC_ERR_ACCESS_DENIED when another program took it over, until the stream is started or opened again.
XAPEL2_HOST_API int startAcquisition(DataStream* pStream, uint64_t nFrames = ~0ULL);

/// Stops the camera; frames that wait for a fetch can still be fetched. Success also when none runs.
/// GC_ERR_RESOURCE_IN_USE on the camera's own thread (inside a frame content function).
XAPEL2_HOST_API int stopAcquisition(DataStream* pStream);

/// Takes all buffers off the queues: queued and filled ones alike wait to be queued again. What a real camera was
/// handed stays with it until its acquisition ends.
XAPEL2_HOST_API int flushBuffers(DataStream* pStream);

/// Waits for the next filled buffer, through the fetch hook.
/// @return GC_ERR_SUCCESS, GC_ERR_TIMEOUT, GC_ERR_ABORT (cancelled), GC_ERR_INVALID_HANDLE (stream not open),
///         GC_ERR_IO or GC_ERR_ACCESS_DENIED (camera lost, see startAcquisition), or what a hook returned (the buffer
///         is the application's then too, when *ppBuffer was written).
XAPEL2_HOST_API int getFilledBuffer(DataStream* pStream, BufferHandle* phBuffer, unsigned long long iTimeoutMs);

/// Ends every fetch that was called before this call, and none that is called later. Through the cancel hook.
XAPEL2_HOST_API int cancelGetFilledBuffer(DataStream* pStream);

/// One property of the stream (STREAM_INFO_...), through the information hook. A null pValue asks for the size.
XAPEL2_HOST_API int getStreamInfo(DataStream* pStream, int iInfoCmd, int* piType, void* pValue,
                                  unsigned long long* piSize);

/// One property of a buffer (BUFFER_INFO_...). A null pValue asks for the size. What only an image has is
/// GC_ERR_NOT_AVAILABLE while the buffer holds none.
XAPEL2_HOST_API int getBufferInfo(DataStream* pStream, BufferHandle hBuffer, int iInfoCmd, int* piType, void* pValue,
                                  unsigned long long* piSize);

}  // namespace StandIn
}  // namespace XAPEL2
