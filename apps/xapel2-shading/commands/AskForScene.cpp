// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Has the user point a camera that cannot be pointed by the program.

#include "commands/AskForScene.h"

#include <iostream>
#include <string>

#include <poll.h>
#include <unistd.h>

#include "terminal/Toolkit.h"
#include "toolkit/sessions/Interrupt.h"

namespace XAPEL2 {
namespace App {

void askForScene(bool bLight) {
    std::cerr << (bLight ? "Point the camera at an even, evenly lit target that fills the image"
                         : "Cover the lens, so that no light reaches the sensor");
    if (isatty(STDIN_FILENO) != 1 || isatty(STDERR_FILENO) != 1) {
        std::cerr << ".\n";
        return;
    }
    std::cerr << ", then press Enter. " << std::flush;
    pollfd aEvents[] = {{STDIN_FILENO, POLLIN, 0}, {Interrupt::descriptor(), POLLIN, 0}};
    while (aEvents[0].revents == 0) {
        poll(aEvents, 2, -1);
        Interrupt::check();
    }
    std::string strLine;
    std::getline(std::cin, strLine);
}

}  // namespace App
}  // namespace XAPEL2
