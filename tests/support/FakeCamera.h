// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A GigE Vision camera in this process that sends what it is told to, and a network of its own for it.

#pragma once

#include <atomic>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <arv.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TemporaryFolder.h"
#include "xapel2_standin/PixelFormat.h"

namespace XapelTest {

/// Moves this process into a network that has nothing but 127.0.0.1 and 127.0.0.2, if the system permits all of that.
inline bool moveToOwnNetwork() {
    const auto fnWrite = [](const char* pFile, const std::string& strText) { std::ofstream(pFile) << strText; };
    const std::string strUser = std::to_string(geteuid()) + " " + std::to_string(geteuid()) + " 1";
    const std::string strGroup = std::to_string(getegid()) + " " + std::to_string(getegid()) + " 1";
    if (unshare(CLONE_NEWNET) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
            return false;
        }
        fnWrite("/proc/self/setgroups", "deny");
        fnWrite("/proc/self/uid_map", strUser);
        fnWrite("/proc/self/gid_map", strGroup);
    }
    const int iSocket = socket(AF_INET, SOCK_DGRAM, 0);
    const auto fnRequest = [iSocket](unsigned long iWhat, const char* pInterface, const char* pAddress, short iFlags) {
        ifreq request{};
        std::strcpy(request.ifr_name, pInterface);
        request.ifr_flags = iFlags;
        if (pAddress != nullptr) {
            sockaddr_in address{};
            address.sin_family = AF_INET;
            inet_pton(AF_INET, pAddress, &address.sin_addr);
            std::memcpy(&request.ifr_addr, &address, sizeof address);
        }
        return ioctl(iSocket, iWhat, &request) == 0;
    };
    const bool bUp =
        fnRequest(SIOCSIFFLAGS, "lo", nullptr, IFF_UP | IFF_RUNNING) && fnRequest(SIOCSIFADDR, "lo:1", "127.0.0.2", 0);
    close(iSocket);
    return bUp;
}

/// Moves this process, which has one thread as yet, into a network of its own. Where the system does not permit that,
/// the process stays where it is: the cameras work there too, one process at a time.
inline bool enterOwnNetwork() {
    // A network without addresses cannot be left again, so another process tries first.
    const pid_t iTrial = fork();
    if (iTrial == 0) {
        _exit(moveToOwnNetwork() ? 0 : 1);
    }
    int iStatus = 1;
    return iTrial > 0 && waitpid(iTrial, &iStatus, 0) == iTrial && iStatus == 0 && moveToOwnNetwork();
}

class CFakeCamera {
public:
    using Format = XAPEL2::StandIn::PixelFormat;
    using Fill = std::function<void(const Format& rFormat, uint64_t nWidth, uint64_t nHeight, void* pImage)>;

    /// @param[in] fnFill  writes each image, on the camera's thread. @throws std::runtime_error
    explicit CFakeCamera(Fill fnFill, const char* pAddress = "127.0.0.1", const char* pSerial = "GV01")
        : m_fnFill(std::move(fnFill)) {
        const XAPEL2::Test::CTemporaryFolder folder;
        const std::string strFile = folder / "camera.xml";
        std::ofstream(strFile) << description();
        m_pCamera.reset(arv_gv_fake_camera_new_full(pAddress, pSerial, strFile.c_str()));
        if (!arv_gv_fake_camera_is_running(m_pCamera.get())) {
            throw std::runtime_error(std::string("no camera at ") + pAddress);
        }
        m_pFake = arv_gv_fake_camera_get_fake_camera(m_pCamera.get());
        arv_fake_camera_set_fill_pattern(m_pFake, &onFill, this);
    }
    CFakeCamera(const CFakeCamera&) = delete;
    CFakeCamera& operator=(const CFakeCamera&) = delete;

    void losePackets(double dShare) { g_object_set(m_pCamera.get(), "gvsp-lost-ratio", dShare, nullptr); }
    /// As after a restart: nobody is in control.
    void dropController() { arv_fake_camera_set_control_channel_privilege(m_pFake, 0); }
    void writeRegister(guint32 uAddress, guint32 uValue) { arv_fake_camera_write_register(m_pFake, uAddress, uValue); }

    guint32 readRegister(guint32 uAddress) const {
        guint32 uValue = 0;
        arv_fake_camera_read_register(m_pFake, uAddress, &uValue);
        return uValue;
    }

    static constexpr guint32 FORMAT_REGISTER = 0x128;
    static constexpr guint32 SENSOR_WIDTH_REGISTER = 0x11c, SENSOR_HEIGHT_REGISTER = 0x118;
    static constexpr guint32 OFFSET_X_REGISTER = 0x130, OFFSET_Y_REGISTER = 0x134;

private:
    struct Unref {
        void operator()(void* pObject) const { g_object_unref(pObject); }
    };

    // The simulator's own description with more formats, one of them unknown to the host, and a mirror.
    static std::string description() {
        const std::unique_ptr<ArvFakeCamera, Unref> pPlain(arv_fake_camera_new("plain"));
        std::size_t nSize = 0;
        const char* pText = arv_fake_camera_get_genicam_xml(pPlain.get(), &nSize);
        std::string strText(pText, nSize);
        std::string strEntries = "<EnumEntry Name=\"YUV422_8\"><Value>34603058</Value></EnumEntry>";
        for (const char* pName : {"Mono12p", "Mono12Packed"}) {
            if (const Format* pFormat = XAPEL2::StandIn::findPixelFormat(pName)) {
                strEntries += std::string("<EnumEntry Name=\"") + pName + "\"><Value>" +
                              std::to_string(pFormat->uPfnc) + "</Value></EnumEntry>";
            }
        }
        strText.insert(strText.find("<EnumEntry Name=\"BayerBG8\""), strEntries);
        // As older cameras call it.
        const std::string strName = "Name=\"RGB8";
        strText.insert(strText.find(strName + "\"") + strName.size(), "Packed");
        strText.insert(strText.find("<Enumeration Name=\"PixelFormat\""),
                       "<Boolean Name=\"ReverseX\"><pValue>ReverseXRegister</pValue></Boolean>"
                       "<IntReg Name=\"ReverseXRegister\"><Address>0x1f0</Address><Length>4</Length>"
                       "<AccessMode>RW</AccessMode><pPort>Device</pPort><Endianess>BigEndian</Endianess></IntReg>");
        return strText;
    }

    static void onFill(ArvBuffer* pBuffer, void* pSelf, guint32, guint32, ArvPixelFormat uPfnc) {
        auto* const pCamera = static_cast<CFakeCamera*>(pSelf);
        const guint32 uWidth = pCamera->readRegister(0x100);
        const guint32 uHeight = pCamera->readRegister(0x104);
        for (const Format& rFormat : XAPEL2::StandIn::pixelFormats()) {
            if (rFormat.uPfnc == uPfnc) {
                pCamera->m_fnFill(rFormat, uWidth, uHeight, const_cast<void*>(arv_buffer_get_data(pBuffer, nullptr)));
            }
        }
    }

    Fill m_fnFill;
    std::atomic<ArvFakeCamera*> m_pFake{nullptr};
    std::unique_ptr<ArvGvFakeCamera, Unref> m_pCamera;  // its thread uses the members above
};

}  // namespace XapelTest
