// Entry point of `tally`.
#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("tally %s\n", TALLY_VERSION);
            return 0;
        }
    }
    std::fprintf(stderr, "usage: tally --version\n");
    return 2;
}
