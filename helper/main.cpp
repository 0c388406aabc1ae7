// ferrodeck-helper carries out single file operations with root rights. It knows no operation yet
// and says so, rather than pretend to have done something.

#include <cstdio>

int main() {
    std::fputs("ferrodeck-helper: no operations are available in this build\n", stderr);
    return 1;
}
