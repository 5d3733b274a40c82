// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reads and writes PNG files. The library leaves a call that fails by a jump: what it jumps over has no destructors.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <png.h>

#include "standin/files/ImageFile.h"
#include "standin/files/PngOutput.h"
#include "standin/files/TiffHandle.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr png_uint_32 CHUNK_BYTES_MAX = 1U << 20;
constexpr std::size_t MEMORY_MAX = 4U << 20;  // at a time: rows of the widest image, and a chunk
constexpr const char* DESCRIPTION = "Description";

/// What the library's calls share with ours.
struct PngState {
    int iFile = -1;
    int iError = 0;  // errno of a call of the system that failed
    std::array<char, 200> acText{};
    std::jmp_buf jump{};
};

[[noreturn]] void onError(png_structp pPng, png_const_charp pText) {
    auto* const pState = static_cast<PngState*>(png_get_error_ptr(pPng));
    std::snprintf(pState->acText.data(), pState->acText.size(), "%s", pText);
    std::longjmp(pState->jump, 1);
}

void onWarning(png_structp, png_const_charp) {}

void onRead(png_structp pPng, png_bytep pBytes, std::size_t nBytes) {
    auto* const pState = static_cast<PngState*>(png_get_io_ptr(pPng));
    while (nBytes > 0) {
        const ssize_t nRead = read(pState->iFile, pBytes, nBytes);
        if (nRead < 0 && errno == EINTR) {
            continue;
        }
        if (nRead <= 0) {
            pState->iError = nRead < 0 ? errno : 0;
            png_error(pPng, "the file ends too early");
        }
        pBytes += nRead;
        nBytes -= static_cast<std::size_t>(nRead);
    }
}

void onWrite(png_structp pPng, png_bytep pBytes, std::size_t nBytes) {
    auto* const pState = static_cast<PngState*>(png_get_io_ptr(pPng));
    while (nBytes > 0) {
        const ssize_t nWritten = write(pState->iFile, pBytes, nBytes);
        if (nWritten < 0 && errno == EINTR) {
            continue;
        }
        if (nWritten <= 0) {
            pState->iError = nWritten < 0 ? errno : EIO;
            png_error(pPng, "cannot write");
        }
        pBytes += nWritten;
        nBytes -= static_cast<std::size_t>(nWritten);
    }
}

void onFlush(png_structp) {}

std::string reason(const PngState& rState) {
    errno = rState.iError;
    return rState.iError != 0 ? systemError() : rState.acText.data();
}

/// An open regular file and what its first bytes say of the image.
class CPngInput {
public:
    explicit CPngInput(const std::string& strPath) : m_strPath(strPath), m_file(openFile(strPath)) { readHead(); }

    const ImageFileLayout& layout() const { return m_layout; }
    int file() const { return m_file.get(); }

private:
    static int openFile(const std::string& strPath) {
        const int iFile = open(strPath.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (iFile < 0) {
            failImageFile(strPath, "cannot be opened: " + systemError());
        }
        return iFile;
    }
    void require(bool bGood, const std::string& strText) const {
        if (!bGood) {
            failImageFile(m_strPath, "PNG cannot be used: " + strText);
        }
    }
    void readHead();

    const std::string& m_strPath;
    CFileDescriptor m_file;
    ImageFileLayout m_layout;
};

void CPngInput::readHead() {
    struct stat status = {};
    require(fstat(file(), &status) == 0 && S_ISREG(status.st_mode), "not a regular file");
    // Signature, then length, type and fields of the first chunk, whose check sum the library looks at later.
    std::array<uint8_t, 29> aHead{};
    require(pread(file(), aHead.data(), aHead.size(), 0) == static_cast<ssize_t>(aHead.size()) &&
                png_sig_cmp(aHead.data(), 0, 8) == 0 && std::memcmp(&aHead[12], "IHDR", 4) == 0,
            "it does not begin as one");
    const auto fnNumber = [&](std::size_t i) {
        return uint64_t{aHead[i]} << 24 | uint64_t{aHead[i + 1]} << 16 | uint64_t{aHead[i + 2]} << 8 | aHead[i + 3];
    };
    m_layout.nWidth = fnNumber(16);
    m_layout.nHeight = fnNumber(20);
    const unsigned nBits = aHead[24], uColour = aHead[25];
    require(m_layout.nWidth >= 1 && m_layout.nHeight >= 1 && m_layout.nWidth <= IMAGE_SIDE_MAX &&
                m_layout.nHeight <= IMAGE_SIDE_MAX,
            std::to_string(m_layout.nWidth) + " x " + std::to_string(m_layout.nHeight) +
                " pixels; each side may be 1 to " + std::to_string(IMAGE_SIDE_MAX));
    require((uColour == PNG_COLOR_TYPE_GRAY || uColour == PNG_COLOR_TYPE_RGB) && (nBits == 8 || nBits == 16),
            "grey or RGB of 8 or 16 bits can be used, without palette and transparency");
    m_layout.pFormat =
        findPixelFormat(std::string(uColour == PNG_COLOR_TYPE_RGB ? "RGB" : "Mono") + std::to_string(nBits));
    m_layout.uMaxval = m_layout.pFormat->fullScale();
    require(imageBytes(*m_layout.pFormat, m_layout.nWidth, m_layout.nHeight) <=
                unpackedMax(static_cast<uint64_t>(status.st_size)),
            "the image is too large for such a small file");
}

// The limit of the library does not hold for all that it takes memory for.
png_voidp onAllocate(png_structp, png_alloc_size_t nBytes) {
    return nBytes <= MEMORY_MAX ? std::malloc(nBytes) : nullptr;
}

void onFree(png_structp, png_voidp pMemory) {
    std::free(pMemory);
}

png_structp makeReader(PngState& rState) {
    png_structp pPng =
        png_create_read_struct_2(PNG_LIBPNG_VER_STRING, &rState, onError, onWarning, nullptr, onAllocate, onFree);
    if (pPng != nullptr) {
        png_set_read_fn(pPng, &rState, onRead);
        png_set_user_limits(pPng, IMAGE_SIDE_MAX, IMAGE_SIDE_MAX);
        png_set_chunk_malloc_max(pPng, CHUNK_BYTES_MAX);
        png_set_chunk_cache_max(pPng, 16);
    }
    return pPng;
}

/// False where the library gave up.
bool decode(PngState& rState, const ImageFileLayout& rLayout, uint8_t* pImage) {
    png_structp pPng = makeReader(rState);
    png_infop pInfo = pPng == nullptr ? nullptr : png_create_info_struct(pPng);
    const std::size_t nRowBytes = imageBytes(*rLayout.pFormat, rLayout.nWidth, 1);
    if (pInfo != nullptr && setjmp(rState.jump) == 0) {
        png_read_info(pPng, pInfo);
        if (rLayout.pFormat->nWireBits == 16) {
            png_set_swap(pPng);
        }
        const int nPasses = png_set_interlace_handling(pPng);
        png_read_update_info(pPng, pInfo);
        if (png_get_rowbytes(pPng, pInfo) != nRowBytes || png_get_image_height(pPng, pInfo) != rLayout.nHeight) {
            png_error(pPng, "changed since it was opened");
        }
        for (int i = 0; i < nPasses; ++i) {
            for (uint64_t iY = 0; iY < rLayout.nHeight; ++iY) {
                png_read_row(pPng, pImage + iY * nRowBytes, nullptr);
            }
        }
        png_read_end(pPng, nullptr);
        rState.acText[0] = '\0';
        png_destroy_read_struct(&pPng, &pInfo, nullptr);
        return true;
    }
    png_destroy_read_struct(&pPng, &pInfo, nullptr);
    return false;
}

bool encode(PngState& rState, const PngImage& rImage) {
    png_structp pPng = png_create_write_struct(PNG_LIBPNG_VER_STRING, &rState, onError, onWarning);
    png_infop pInfo = pPng == nullptr ? nullptr : png_create_info_struct(pPng);
    const std::size_t nRowBytes = rImage.nWidth * rImage.nChannels * (rImage.nBits / 8);
    if (pInfo != nullptr && setjmp(rState.jump) == 0) {
        png_set_write_fn(pPng, &rState, onWrite, onFlush);
        png_set_IHDR(pPng, pInfo, static_cast<png_uint_32>(rImage.nWidth), static_cast<png_uint_32>(rImage.nHeight),
                     static_cast<int>(rImage.nBits), rImage.nChannels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                     PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        // Noise packs badly, however long one tries.
        png_set_compression_level(pPng, 1);
        png_set_filter(pPng, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
        if (rImage.pDescription != nullptr) {
            png_text text{};
            text.compression = PNG_TEXT_COMPRESSION_NONE;
            text.key = const_cast<char*>(DESCRIPTION);
            text.text = const_cast<char*>(rImage.pDescription);
            png_set_text(pPng, pInfo, &text, 1);
        }
        png_write_info(pPng, pInfo);
        for (uint64_t iY = 0; iY < rImage.nHeight; ++iY) {
            png_write_row(pPng, rImage.pSamples + iY * nRowBytes);
        }
        png_write_end(pPng, nullptr);
        png_destroy_write_struct(&pPng, &pInfo);
        return true;
    }
    png_destroy_write_struct(&pPng, &pInfo);
    return false;
}

/// The description among the chunks before the image.
void readDescription(PngState& rState, std::array<char, 1024>& rText) {
    png_structp pPng = makeReader(rState);
    png_infop pInfo = pPng == nullptr ? nullptr : png_create_info_struct(pPng);
    if (pInfo != nullptr && setjmp(rState.jump) == 0) {
        png_read_info(pPng, pInfo);
        png_textp pTexts = nullptr;
        const int nTexts = png_get_text(pPng, pInfo, &pTexts, nullptr);
        for (int i = 0; i < nTexts; ++i) {
            if (std::strcmp(pTexts[i].key, DESCRIPTION) == 0) {
                std::snprintf(rText.data(), rText.size(), "%s", pTexts[i].text);
            }
        }
    }
    png_destroy_read_struct(&pPng, &pInfo, nullptr);
}

}  // namespace

ImageFileLayout pngLayout(const std::string& strPath) {
    return CPngInput(strPath).layout();
}

void readPng(const std::string& strPath, const ImageFileLayout& rLayout, void* pImage) {
    const CPngInput input(strPath);
    const std::string strDifference = layoutDifference(rLayout, input.layout());
    if (!strDifference.empty()) {
        failImageFile(strPath, "changed since it was opened: " + strDifference);
    }
    PngState state;
    state.iFile = input.file();
    if (!decode(state, rLayout, static_cast<uint8_t*>(pImage))) {
        failImageFile(strPath, "PNG cannot be used: " + reason(state));
    }
}

void writePng(int iFile, const PngImage& rImage) {
    PngState state;
    state.iFile = iFile;
    if (!encode(state, rImage)) {
        throw CFileError(reason(state));
    }
}

std::string pngDescription(const std::string& strPath) {
    std::array<char, 1024> acText{};
    try {
        const CPngInput input(strPath);
        PngState state;
        state.iFile = input.file();
        readDescription(state, acText);
    } catch (const std::exception&) {
        return "";
    }
    return acText.data();
}

}  // namespace StandIn
}  // namespace XAPEL2
