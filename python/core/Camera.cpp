// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Camera and Frame.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include "python/core/Arrays.h"
#include "python/core/Gil.h"
#include "python/core/LiveCamera.h"
#include "python/core/Parts.h"
#include "toolkit/text/Errors.h"

namespace XAPEL2 {
namespace Python {

namespace {

namespace py = pybind11;

/// A camera, and how many threads are inside of its waits.
struct PyCamera {
    std::shared_ptr<CLiveCamera> pLive;
    std::atomic<unsigned> nInside{0};
};

/// Stands for a thread that waits, until that has the interpreter's lock again: to be built before it is given up.
class CInside {
public:
    explicit CInside(PyCamera& rCamera) : m_rCamera(rCamera) { ++m_rCamera.nInside; }
    ~CInside() { --m_rCamera.nInside; }
    CInside(const CInside&) = delete;
    CInside& operator=(const CInside&) = delete;

private:
    PyCamera& m_rCamera;
};

class CFrame {
public:
    explicit CFrame(LiveFrame frame) : m_frame(std::move(frame)) {}

    const LiveFrame& get() const { return m_frame; }
    bool isReleased() const { return m_frame.pLease == nullptr; }
    py::object array() const;
    void release();

private:
    LiveFrame m_frame;
};

py::object CFrame::array() const {
    if (isReleased()) {
        throw Toolkit::CGenTlError(GC_ERR_INVALID_BUFFER, "the frame has been released");
    }
    if (!m_frame.layout) {
        throw Toolkit::CGenTlError(GC_ERR_NOT_AVAILABLE, "the frame has no image: " + m_frame.strWhy);
    }
    // Each array holds the buffer, too.
    const py::capsule base(new std::shared_ptr<CLease>(m_frame.pLease),
                           [](void* p) { delete static_cast<std::shared_ptr<CLease>*>(p); });
    return py::array(dtypeOf(*m_frame.layout->pFormat), shapeOf(*m_frame.layout), m_frame.pImage, base);
}

void CFrame::release() {
    if (m_frame.pLease.use_count() > 1) {
        PyErr_SetString(PyExc_BufferError, "arrays of the frame are still in use: drop them, or copy them before");
        throw py::error_already_set();
    }
    m_frame.pLease.reset();
}

// Called without the interpreter's lock: signals and cancels end the wait.
CLiveCamera::Watch watchOf(const CLiveCamera& rCamera, uint64_t nCancels) {
    return [&rCamera, nCancels] {
        {
            const py::gil_scoped_acquire acquired;
            if (PyErr_CheckSignals() != 0) {
                throw py::error_already_set();
            }
        }
        if (rCamera.cancels() != nCancels) {
            throw Toolkit::CGenTlError(GC_ERR_ABORT, rCamera.device() + ": cancelled");
        }
    };
}

CFrame fetch(PyCamera& rCamera, std::optional<uint64_t> nCancels) {
    CLiveCamera& rLive = *rCamera.pLive;
    const CLiveCamera::Watch fnWatch = watchOf(rLive, nCancels.value_or(rLive.cancels()));
    const CInside inside(rCamera);
    return CFrame(withoutGil([&] {
        if (nCancels && *nCancels != rLive.cancels() && rLive.isOpen()) {
            fnWatch();
        }
        return rLive.fetch(fnWatch);
    }));
}

// Returns when the threads that it has ended the waits of have the interpreter's lock again: after this, that may end.
void close(PyCamera& rCamera) {
    if (rCamera.pLive->isInherited()) {
        return;
    }
    withoutGil([&] {
        rCamera.pLive->close();
        for (unsigned i = 0; rCamera.nInside != 0 && i < 5000; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
}

py::dict record(PyCamera& rCamera, bool bLight, uint64_t nFrames, const std::string& strFile,
                const py::object& rProgress, bool bKeepOutliers) {
    CLiveCamera::Told fnTold;
    if (!rProgress.is_none()) {
        fnTold = [&rProgress](uint64_t iDone, uint64_t nAll) {
            const py::gil_scoped_acquire acquired;
            rProgress(iDone, nAll);
        };
    }
    CLiveCamera& rLive = *rCamera.pLive;
    const CLiveCamera::Watch fnWatch = watchOf(rLive, rLive.cancels());
    const CInside inside(rCamera);
    const Toolkit::Recording recording =
        withoutGil([&] { return rLive.record(bLight, nFrames, strFile, bKeepOutliers, fnWatch, fnTold); });
    py::dict result;
    result["frames"] = recording.nFrames;
    result["left_out"] = recording.nLeftOut;
    result["why_left_out"] = recording.strLeftOut;
    result["underruns"] = recording.nUnderruns;
    result["saturated_share"] = recording.dSaturatedShare;
    result["why_no_settings"] = recording.strNoSettings;
    return result;
}

// The value as text, and whether it is a number.
std::pair<std::string, bool> getNode(const PyCamera& rCamera, const std::string& strName) {
    return withoutGil([&] {
        const auto pSession = rCamera.pLive->session();
        Node& rNode = *pSession->nodes().GetNode(strName.c_str());
        bool bNumber = true;
        try {
            rNode.GetInt();
        } catch (const Exceptions::IException&) {
            bNumber = false;
        }
        return std::make_pair(std::string(rNode.GetString().get()), bNumber);
    });
}

void setNode(const PyCamera& rCamera, const std::string& strName, const std::string& strValue) {
    withoutGil([&] {
        const auto pSession = rCamera.pLive->session();
        Node& rNode = *pSession->nodes().GetNode(strName.c_str());
        try {
            rNode.SetValue(strValue.c_str());
        } catch (const Exceptions::IException& rError) {
            throw Toolkit::CGenTlError(Toolkit::gentlCode(rError), strName + " = " + strValue + ": " + rError.what());
        }
    });
}

bool hasNode(const PyCamera& rCamera, const std::string& strName) {
    return withoutGil([&] { return rCamera.pLive->session()->nodes().GetNodePresent(strName.c_str()); });
}

std::unique_ptr<PyCamera> open(const std::string& strDevice, double dTimeoutS, std::size_t nBuffers) {
    auto pCamera = std::make_unique<PyCamera>();
    withoutGil([&] { pCamera->pLive = std::make_shared<CLiveCamera>(strDevice, dTimeoutS, nBuffers); });
    return pCamera;
}

constexpr const char* FRAME_DOC = R"(A frame that a camera has delivered, in the buffer that it was announced.

The buffer is the camera's again when the frame and every array of it are gone, or after release(). As many frames can
be held at once as the camera has buffers. What is held stays as it is when the camera is stopped or closed.

Attributes
----------
array : ndarray
    View of the image, writable: uint8, or uint16 for unpacked formats above 8 bits; of shape (height, width),
    (height, width, 3) for RGB8 and BGR8, or (bytes,) for packed formats. RuntimeError after release(), OSError where
    the frame has no image.
number : int
    Of the frame since the start.
timestamp : int
    ns, of the camera's clock.
name : str
    Of the file that is replayed, or what else the camera calls it.
width, height, offset_x, offset_y : int
    Pixels; 0 where there is no image.
pixel_format : str
    PFNC name; empty where there is no image.
complete : bool
    False where the camera could not deliver all of it.
corrected : bool
    True where its pixels are corrected.
reason : str
    Why they are not; empty where they are.
released : bool
    True after release().
)";

constexpr const char* RELEASE_DOC = R"(Give the buffer back. The end of a with block does the same.

Raises
------
BufferError
    Arrays of the frame are still in use.
)";

void defineFrame(py::module_& rModule) {
    const auto fnGet = [](auto pMember) { return [pMember](const CFrame& rSelf) { return rSelf.get().*pMember; }; };
    py::class_<CFrame>(rModule, "Frame", FRAME_DOC)
        .def("release", &CFrame::release, RELEASE_DOC)
        .def("__enter__", [](const py::object& rSelf) { return rSelf; })
        .def("__exit__", [](CFrame& rSelf, const py::args&) { rSelf.release(); })
        .def_property_readonly("array", &CFrame::array)
        .def_property_readonly("released", &CFrame::isReleased)
        .def_property_readonly("name", fnGet(&LiveFrame::strName))
        .def_property_readonly("complete", fnGet(&LiveFrame::bComplete))
        .def_property_readonly("reason", fnGet(&LiveFrame::strWhy))
        .def_property_readonly("corrected",
                               [](const CFrame& rSelf) { return rSelf.get().eWhat == StandIn::eCorrected; })
        .def_property_readonly("timestamp", [](const CFrame& rSelf) { return rSelf.get().facts.uTimestampNs; })
        .def_property_readonly("number", [](const CFrame& rSelf) { return rSelf.get().facts.iFrame; })
        .def_property_readonly("offset_x", [](const CFrame& rSelf) { return rSelf.get().facts.nOffsetX; })
        .def_property_readonly("offset_y", [](const CFrame& rSelf) { return rSelf.get().facts.nOffsetY; })
        .def_property_readonly("width",
                               [](const CFrame& rSelf) { return rSelf.get().layout ? rSelf.get().layout->nWidth : 0; })
        .def_property_readonly("height",
                               [](const CFrame& rSelf) { return rSelf.get().layout ? rSelf.get().layout->nHeight : 0; })
        .def_property_readonly("pixel_format", [](const CFrame& rSelf) {
            return std::string(rSelf.get().layout ? rSelf.get().layout->pFormat->pName : "");
        });
}

}  // namespace

void defineCamera(py::module_& rModule) {
    defineFrame(rModule);
    const auto fnTell = [](auto pProperty) {
        return [pProperty](const PyCamera& rSelf) { return ((*rSelf.pLive).*pProperty)(); };
    };
    const auto fnRun = [](auto pOperation) {
        return [pOperation](PyCamera& rSelf) { return withoutGil([&] { return ((*rSelf.pLive).*pOperation)(); }); };
    };
    py::class_<PyCamera>(rModule, "Camera")
        .def(py::init(&open), py::arg("device"), py::arg("timeout"), py::arg("buffers"))
        .def_property_readonly("device", fnTell(&CLiveCamera::device))
        .def_property_readonly("is_open", fnTell(&CLiveCamera::isOpen))
        .def_property_readonly("running", fnTell(&CLiveCamera::isRunning))
        .def_property_readonly("correcting", fnTell(&CLiveCamera::isCorrecting))
        .def_property_readonly("buffers", fnRun(&CLiveCamera::bufferCount))
        .def_property_readonly("underruns", fnRun(&CLiveCamera::underruns))
        .def_property_readonly("cancels", fnTell(&CLiveCamera::cancels))
        .def(
            "start",
            [](PyCamera& rSelf, std::optional<uint64_t> nFrames) {
                withoutGil([&] { rSelf.pLive->start(nFrames.value_or(~0ULL)); });
            },
            py::arg("frames") = py::none())
        .def("stop", fnRun(&CLiveCamera::stop))
        .def("fetch", &fetch, py::arg("cancels") = py::none())
        .def("cancel", fnRun(&CLiveCamera::cancel))
        .def("close", &close)
        .def("record", &record, py::arg("light"), py::arg("frames"), py::arg("file"), py::arg("progress"),
             py::arg("keep_outliers"))
        .def("correct",
             [](PyCamera& rSelf, const std::string& strDark, const std::string& strLight, unsigned nBoxDark,
                unsigned nBoxLight, unsigned nMedianDark, unsigned nMedianLight) {
                 const Toolkit::PairOptions pair{strDark, strLight, nBoxLight, nBoxDark, nMedianLight, nMedianDark};
                 withoutGil([&] { rSelf.pLive->correct(pair); });
             })
        .def("stop_correcting", fnRun(&CLiveCamera::stopCorrecting))
        .def("get_node", &getNode)
        .def("set_node", &setNode)
        .def("has_node", &hasNode);
    rModule.def("devices", [] {
        std::vector<std::pair<std::string, std::string>> vecFound;
        withoutGil([&] {
            for (const StandIn::DeviceInfo& rInfo : StandIn::enumerateDevices()) {
                vecFound.emplace_back(rInfo.strId, rInfo.strDescription);
            }
        });
        return vecFound;
    });
}

}  // namespace Python
}  // namespace XAPEL2
