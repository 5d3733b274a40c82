// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reads and writes the features of a camera.

#include "standin/cameras/aravis/AravisFeatures.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include "standin/cameras/aravis/AravisCamera.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

// Integers that shape the image.
constexpr const char* LAYOUT_FEATURES[] = {"Width",          "Height", "OffsetX", "OffsetY", "BinningHorizontal",
                                           "BinningVertical"};
constexpr const char* SENSOR_FEATURES[] = {"SensorWidth", "SensorHeight"};
constexpr const char* MODE_FEATURES[] = {"BinningHorizontalMode", "BinningVerticalMode"};
constexpr const char* MIRROR_FEATURES[] = {"ReverseX", "ReverseY"};

// A decimal setting that cameras keep under several names; the transport finds the right one.
struct Decimal {
    const char* pName;
    gboolean (*pfnAvailable)(ArvCamera*, GError**);
    double (*pfnGet)(ArvCamera*, GError**);
    void (*pfnSet)(ArvCamera*, double, GError**);
    void (*pfnBounds)(ArvCamera*, double*, double*, GError**);
};
constexpr Decimal DECIMALS[] = {
    {"ExposureTime", &arv_camera_is_exposure_time_available, &arv_camera_get_exposure_time,
     &arv_camera_set_exposure_time, &arv_camera_get_exposure_time_bounds},
    {"Gain", &arv_camera_is_gain_available, &arv_camera_get_gain, &arv_camera_set_gain, &arv_camera_get_gain_bounds},
    {"AcquisitionFrameRate", &arv_camera_is_frame_rate_available, &arv_camera_get_frame_rate,
     &arv_camera_set_frame_rate, &arv_camera_get_frame_rate_bounds},
};

// Runs one command of the transport alone. @throws CCameraError
template <class tCall>
auto command(CAravisCamera& rCamera, tCall fnCall) {
    std::lock_guard<std::mutex> lock(rCamera.commands());
    CGlibError error;
    const auto result = fnCall(rCamera.arv(), error.out());
    error.check();
    return result;
}

// Runs a command that changes the image, unless frames are under way.
template <class tCall>
eNodeResult changeLayout(CAravisCamera& rCamera, tCall fnCall) {
    std::lock_guard<std::mutex> lock(rCamera.commands());
    if (rCamera.streaming()) {
        return eNodeDenied;
    }
    CGlibError error;
    const eNodeResult eResult = fnCall(rCamera.arv(), error.out());
    error.check();
    if (eResult == eNodeDone) {
        rCamera.refreshLayout();
    }
    return eResult;
}

struct IntRange {
    gint64 iMin = 0, iMax = 0, iStep = 1;
};

IntRange rangeOf(ArvCamera* pCamera, const char* pName, GError** ppError) {
    IntRange range;
    arv_camera_get_integer_bounds(pCamera, pName, &range.iMin, &range.iMax, ppError);
    if (*ppError == nullptr) {
        range.iStep = std::max<gint64>(1, arv_camera_get_integer_increment(pCamera, pName, ppError));
    }
    return range;
}

NodeSpec integerNode(CAravisCamera& rCamera, const char* pName) {
    NodeSpec spec;
    spec.strName = pName;
    const auto fnRange = [&rCamera, pName] {
        return command(rCamera, [pName](ArvCamera* p, GError** pp) { return rangeOf(p, pName, pp); });
    };
    spec.fnMin = [fnRange] { return fnRange().iMin; };
    spec.fnMax = [fnRange] { return fnRange().iMax; };
    spec.fnGetInt = [&rCamera, pName] {
        return command(rCamera, [pName](ArvCamera* p, GError** pp) { return arv_camera_get_integer(p, pName, pp); });
    };
    spec.fnSetInt = [&rCamera, pName](int64_t iValue) {
        return changeLayout(rCamera, [=](ArvCamera* p, GError** pp) {
            const IntRange range = rangeOf(p, pName, pp);
            if (*pp != nullptr || iValue < range.iMin || iValue > range.iMax ||
                (iValue - range.iMin) % range.iStep != 0) {
                return eNodeInvalid;
            }
            arv_camera_set_integer(p, pName, iValue, pp);
            return eNodeDone;
        });
    };
    return spec;
}

NodeSpec modeNode(CAravisCamera& rCamera, const char* pName) {
    NodeSpec spec;
    spec.strName = pName;
    spec.eKind = eEnumNode;
    spec.fnGetText = [&rCamera, pName] {
        return command(rCamera, [pName](ArvCamera* p, GError** pp) {
            const char* const pText = arv_camera_get_string(p, pName, pp);
            return std::string(pText == nullptr ? "" : pText);
        });
    };
    spec.fnSetText = [&rCamera, pName](const char* pEntry) {
        return changeLayout(rCamera, [=](ArvCamera* p, GError** pp) {
            arv_camera_set_string(p, pName, pEntry, pp);
            return eNodeDone;
        });
    };
    return spec;
}

NodeSpec mirrorNode(CAravisCamera& rCamera, const char* pName) {
    NodeSpec spec;
    spec.strName = pName;
    spec.fnMin = [] { return int64_t{0}; };
    spec.fnMax = [] { return int64_t{1}; };
    spec.fnGetInt = [&rCamera, pName] {
        return command(rCamera, [pName](ArvCamera* p, GError** pp) {
            return int64_t{arv_camera_get_boolean(p, pName, pp) != FALSE ? 1 : 0};
        });
    };
    spec.fnSetInt = [&rCamera, pName](int64_t iValue) {
        if (iValue != 0 && iValue != 1) {
            return eNodeInvalid;
        }
        return changeLayout(rCamera, [=](ArvCamera* p, GError** pp) {
            arv_camera_set_boolean(p, pName, iValue != 0 ? TRUE : FALSE, pp);
            return eNodeDone;
        });
    };
    return spec;
}

eNodeResult setDecimal(CAravisCamera& rCamera, const Decimal& rDecimal, double dValue) {
    return command(rCamera, [&](ArvCamera* p, GError** pp) {
        double dMin = 0;
        double dMax = 0;
        rDecimal.pfnBounds(p, &dMin, &dMax, pp);
        if (*pp != nullptr || !(dValue >= dMin && dValue <= dMax)) {
            return eNodeInvalid;
        }
        rDecimal.pfnSet(p, dValue, pp);
        return eNodeDone;
    });
}

int64_t rounded(double dValue) {
    constexpr double LARGEST = 9e15;  // integers up to here are exact
    return std::llround(std::max(-LARGEST, std::min(LARGEST, dValue)));
}

NodeSpec decimalNode(CAravisCamera& rCamera, const Decimal& rDecimal) {
    NodeSpec spec;
    spec.strName = rDecimal.pName;
    const auto fnBound = [&rCamera, &rDecimal](bool bMax) {
        return command(rCamera, [&](ArvCamera* p, GError** pp) {
            double aBounds[2] = {0, 0};
            rDecimal.pfnBounds(p, &aBounds[0], &aBounds[1], pp);
            return bMax ? std::floor(aBounds[1]) : std::ceil(aBounds[0]);
        });
    };
    const auto fnGet = [&rCamera, &rDecimal] { return command(rCamera, rDecimal.pfnGet); };
    spec.fnMin = [fnBound] { return rounded(fnBound(false)); };
    spec.fnMax = [fnBound] { return rounded(fnBound(true)); };
    spec.fnGetInt = [fnGet] { return rounded(fnGet()); };
    spec.fnSetInt = [&rCamera, &rDecimal](int64_t iValue) {
        return setDecimal(rCamera, rDecimal, static_cast<double>(iValue));
    };
    spec.fnGetText = [fnGet] {
        char aText[40];
        const auto result = std::to_chars(aText, aText + sizeof aText, fnGet());
        return std::string(aText, result.ptr);
    };
    spec.fnSetText = [&rCamera, &rDecimal](const char* pText) {
        double dValue = 0;
        const char* pEnd = pText + std::strlen(pText);
        const auto result = std::from_chars(pText, pEnd, dValue);
        const bool bNumber = result.ec == std::errc() && result.ptr == pEnd;
        return bNumber ? setDecimal(rCamera, rDecimal, dValue) : eNodeInvalid;
    };
    return spec;
}

NodeSpec textNode(const char* pName, const char* pText) {
    NodeSpec spec;
    spec.strName = pName;
    spec.eKind = eTextNode;
    spec.fnGetText = [strText = std::string(pText == nullptr ? "" : pText)] { return strText; };
    return spec;
}

NodeSpec formatNode(CAravisCamera& rCamera) {
    NodeSpec spec;
    spec.strName = "PixelFormat";
    spec.eKind = eEnumNode;
    spec.fnGetText = [&rCamera] { return rCamera.layout().strFormat; };
    spec.fnEntries = [&rCamera] { return formatNames(rCamera.commonFormats()); };
    spec.fnSetText = [&rCamera](const char* pEntry) {
        return changeLayout(rCamera, [&](ArvCamera* p, GError** pp) {
            const auto vecCommon = rCamera.commonFormats();
            for (const PixelFormat* pFormat : vecCommon) {
                if (std::strcmp(pFormat->pName, pEntry) == 0) {
                    arv_camera_set_pixel_format(p, pFormat->uPfnc, pp);
                    return eNodeDone;
                }
            }
            throw std::invalid_argument(unknownFormatText(pEntry, vecCommon));
        });
    };
    return spec;
}

}  // namespace

std::string unknownFormatText(const std::string& strFormat, const std::vector<const PixelFormat*>& rCommon) {
    std::string strText = "the format '" + strFormat + "' cannot be used, those that camera and host both know are ";
    for (const PixelFormat* pFormat : rCommon) {
        strText += (pFormat == rCommon.front() ? "" : ", ") + std::string(pFormat->pName);
    }
    return rCommon.empty() ? strText + "none" : strText;
}

NodeTable aravisNodes(CAravisCamera& rCamera) {
    NodeTable vecTable;
    const auto fnHas = [&rCamera](const char* pName) {
        return arv_camera_is_feature_available(rCamera.arv(), pName, nullptr) != FALSE;
    };
    vecTable.push_back(textNode("DeviceModelName", arv_camera_get_model_name(rCamera.arv(), nullptr)));
    vecTable.push_back(textNode("DeviceSerialNumber", arv_camera_get_device_serial_number(rCamera.arv(), nullptr)));
    vecTable.push_back(formatNode(rCamera));
    for (const char* pName : LAYOUT_FEATURES) {
        if (fnHas(pName)) {
            vecTable.push_back(integerNode(rCamera, pName));
        }
    }
    for (const char* pName : SENSOR_FEATURES) {
        if (fnHas(pName)) {
            vecTable.push_back(integerNode(rCamera, pName));
            vecTable.back().fnSetInt = nullptr;
        }
    }
    for (const char* pName : MODE_FEATURES) {
        if (fnHas(pName)) {
            vecTable.push_back(modeNode(rCamera, pName));
        }
    }
    for (const char* pName : MIRROR_FEATURES) {
        if (fnHas(pName)) {
            vecTable.push_back(mirrorNode(rCamera, pName));
        }
    }
    for (const Decimal& rDecimal : DECIMALS) {
        if (rDecimal.pfnAvailable(rCamera.arv(), nullptr) != FALSE) {
            vecTable.push_back(decimalNode(rCamera, rDecimal));
        }
    }
    return vecTable;
}

}  // namespace StandIn
}  // namespace XAPEL2
