// LD_PRELOAD shim: passes every sync() and fdatasync() on and adds up how long they took; at
// exit it writes "<sync calls> <sync ms> <fdatasync calls> <fdatasync ms>" to $SYNC_TIMER_OUT.
// A recorded restart ends the process with _exit, so the figures are also written as they grow.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>

namespace {
struct Counter
{
    long calls = 0;
    double milliseconds = 0;
};
Counter syncs, datasyncs;

void save()
{
    // Helper processes that never sync must not overwrite the program's figures.
    if (syncs.calls + datasyncs.calls == 0)
        return;
    if (const char* out = getenv("SYNC_TIMER_OUT")) {
        if (FILE* file = fopen(out, "w")) {
            fprintf(file, "%ld %.3f %ld %.3f\n", syncs.calls, syncs.milliseconds, datasyncs.calls,
                    datasyncs.milliseconds);
            fclose(file);
        }
    }
}

template <typename Call> auto timed(Counter& counter, Call call)
{
    timespec start, end;
    clock_gettime(CLOCK_MONOTONIC, &start);
    auto result = call();
    clock_gettime(CLOCK_MONOTONIC, &end);
    ++counter.calls;
    counter.milliseconds += (end.tv_sec - start.tv_sec) * 1e3 + (end.tv_nsec - start.tv_nsec) / 1e6;
    if ((syncs.calls + datasyncs.calls) % 64 == 0)
        save();
    return result;
}
} // namespace

extern "C" void sync(void)
{
    static auto real = reinterpret_cast<void (*)(void)>(dlsym(RTLD_NEXT, "sync"));
    timed(syncs, [] {
        real();
        return 0;
    });
}

extern "C" int fdatasync(int fd)
{
    static auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fdatasync"));
    return timed(datasyncs, [fd] { return real(fd); });
}

__attribute__((destructor)) static void finish()
{
    save();
}
