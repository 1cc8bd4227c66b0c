// Part of the simulator's shim preloaded into the updater (see frame_grab.c): records what the
// dialog's progress bar shows, in percent, so that kelsim can show it on a terminal while the run
// goes on. KELSIM_GRAB_DIR/progress holds the latest value as "NNN\n"; each new value is written
// to a scratch file renamed over it, so a reader never sees half a value. The bar is set every
// 300 ms and after many steps, but its value changes at most a few hundred times a run: only a
// change is written.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

int kelsim_grab_active(void);

static void record(int percent)
{
    static int last = -1;
    if (percent == last)
        return;
    char scratch[4096], path[4096], text[8];
    snprintf(scratch, sizeof scratch, "%s/progress.new", getenv("KELSIM_GRAB_DIR"));
    snprintf(path, sizeof path, "%s/progress", getenv("KELSIM_GRAB_DIR"));
    const int size = snprintf(text, sizeof text, "%3d\n", percent);
    const int fd = open(scratch, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return;
    const int written = write(fd, text, (size_t)size) == size;
    if (close(fd) == 0 && written && rename(scratch, path) == 0)
        last = percent;
}

// QProgressBar::setValue(int)
void _ZN12QProgressBar8setValueEi(void* bar, int value)
{
    static void (*real)(void*, int);
    static int (*current)(const void*), (*minimum)(const void*), (*maximum)(const void*);
    if (!real) {
        real = (void (*)(void*, int))dlsym(RTLD_NEXT, "_ZN12QProgressBar8setValueEi");
        current = (int (*)(const void*))dlsym(RTLD_NEXT, "_ZNK12QProgressBar5valueEv");
        minimum = (int (*)(const void*))dlsym(RTLD_NEXT, "_ZNK12QProgressBar7minimumEv");
        maximum = (int (*)(const void*))dlsym(RTLD_NEXT, "_ZNK12QProgressBar7maximumEv");
    }
    real(bar, value);
    // What the bar took, not what it was asked: it ignores a value outside its range.
    if (!kelsim_grab_active() || !current || !minimum || !maximum)
        return;
    const long long low = minimum(bar), high = maximum(bar), shown = current(bar);
    if (high <= low)
        return;
    const long long percent = (shown - low) * 100 / (high - low);
    record(percent < 0 ? 0 : percent > 100 ? 100 : (int)percent);
}
