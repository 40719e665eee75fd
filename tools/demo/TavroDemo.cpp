// Placeholder until the codec lands.
#include <cstdio>
int main() {
    std::puts("tavro-demo: the codec is not built yet");
    return 0;
}
