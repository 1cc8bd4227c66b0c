// One rename per file, as staging costs over a plain copy: each FILE becomes FILE~ (the floor's
// own copies, never the stick's). perf_update.sh's floor for a run that stages its files.
#include <cstdio>
#include <string>

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::rename(argv[i], (std::string(argv[i]) + "~").c_str()) != 0) {
            perror(argv[i]);
            return 1;
        }
    }
    return 0;
}
