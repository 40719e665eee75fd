// tavro-sim: plays a scenario file and prints what the Tavro plug-in did (see the README).
#include <iostream>

#include "tools/sim/TavroSimMain.h"

int main(int argc, char** argv) {
    return android::tavroSimMain(argc, argv, std::cout, std::cerr, /*standalone=*/true);
}
