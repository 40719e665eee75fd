// tavro-boostinfo: checks and explains a boost-info string (see the README).
#include <iostream>

#include "tools/boostinfo/TavroBoostInfoMain.h"

int main(int argc, char** argv) {
    return android::tavroBoostInfoMain(argc, argv, std::cin, std::cout, std::cerr);
}
