// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// An application in its smallest form: makes an image even with a light reference of itself. C++11.

#include <vector>

#include "xapel2_ext_sc.h"
#include "xapel2_standin/Host.h"

int main() {
    XAPEL2::Device* pDevice = XAPEL2::StandIn::openDevice("sim:1?width=64&height=48&format=Mono8");
    std::vector<unsigned char> image(64 * 48, 100);
    image[5] = 50;
    {
        XAPEL2::Ext::Sc::Shading shading(pDevice);
        shading.ReferenceStart(true);
        shading.ReferenceAdd("Mono8", 64, 48, image.data(), image.size());
        shading.ReferenceEnd("light.tif");
        shading.ReferenceApply();
        shading.ReferenceAdd("Mono8", 64, 48, image.data(), image.size());
    }
    XAPEL2::StandIn::closeDevice(pDevice);
    return image[5] == image[6] && image[6] == 100 ? 0 : 1;
}
