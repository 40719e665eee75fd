// tavro-sim: plays a scenario file and prints what the Tavro plug-in did (see the README).
#include <signal.h>

#include <iostream>

#include "tools/sim/TavroSimMain.h"

int main(int argc, char** argv) {
    // stdout is written a line at a time and flushed; stdio's own buffer would only add a copy.
    std::ios::sync_with_stdio(false);
    // A reader that goes away (tavro-sim ... | head) fails the writes instead of killing the
    // process before it removes its /proc fixture.
    signal(SIGPIPE, SIG_IGN);
    return android::tavroSimMain(argc, argv, std::cout, std::cerr, /*standalone=*/true);
}
