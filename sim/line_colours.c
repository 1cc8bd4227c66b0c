// Part of the simulator's shim preloaded into the updater (see frame_grab.c): records the colour
// each message line was shown in, which the log itself does not keep. The dialog sets its pane's
// text colour and then writes that message to the log, so the first write through a Qt device
// after a colour change is the message's log line. Every line written there goes to
// KELSIM_GRAB_DIR/colours as "#rrggbb TEXT"; the report pairs them with the log's lines.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

int kelsim_grab_active(void);

// The start of Qt's colour value: its kind, then 16-bit alpha, red, green and blue.
struct QtColour
{
    int kind;
    unsigned short alpha, red, green, blue;
};
enum
{
    kQtRgbKind = 1
};

static int open_colours(void)
{
    char path[4096];
    snprintf(path, sizeof path, "%s/colours", getenv("KELSIM_GRAB_DIR"));
    return open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
}

// The file, even empty, tells the report that the colours were recorded.
void kelsim_colours_start(void)
{
    const int fd = open_colours();
    if (fd >= 0)
        close(fd);
}

static char pending[8]; // the colour of the message whose log line comes next; "" when none

// QTextEdit::setTextColor(const QColor&)
void _ZN9QTextEdit12setTextColorERK6QColor(void* edit, const struct QtColour* colour)
{
    static void (*real)(void*, const struct QtColour*);
    if (!real)
        real = (void (*)(void*, const struct QtColour*))dlsym(
            RTLD_NEXT, "_ZN9QTextEdit12setTextColorERK6QColor");
    if (kelsim_grab_active()) {
        if (colour->kind == kQtRgbKind)
            snprintf(pending, sizeof pending, "#%02x%02x%02x", colour->red >> 8,
                     colour->green >> 8, colour->blue >> 8);
        else
            strcpy(pending, "#000000"); // the program uses no other kind; shown as the default
    }
    real(edit, colour);
}

static void record(const char* data, long long size)
{
    if (!pending[0] || size <= 0)
        return;
    const int fd = open_colours();
    if (fd >= 0) {
        // One record a line: a message that holds line breaks fills several log lines.
        const char* end = data + size;
        for (const char* line = data; line < end;) {
            const char* next = memchr(line, '\n', (size_t)(end - line));
            const char* stop = next ? next : end;
            if (write(fd, pending, 7) != 7 || write(fd, " ", 1) != 1 ||
                write(fd, line, (size_t)(stop - line)) != stop - line || write(fd, "\n", 1) != 1)
                break;
            line = next ? next + 1 : end;
        }
        close(fd);
    }
    pending[0] = 0;
}

// QIODevice::write(const QByteArray&), out of line since Qt 6: the log's lines arrive here, and
// Qt's own call on to the overload below stays inside the library. A QByteArray of Qt 6 holds its
// data pointer and size after a header pointer.
struct QtByteArray
{
    void* header;
    const char* data;
    long long size;
};

long long _ZN9QIODevice5writeERK10QByteArray(void* device, const struct QtByteArray* bytes)
{
    static long long (*real)(void*, const struct QtByteArray*);
    if (!real)
        real = (long long (*)(void*, const struct QtByteArray*))dlsym(
            RTLD_NEXT, "_ZN9QIODevice5writeERK10QByteArray");
    record(bytes->data, bytes->size);
    return real(device, bytes);
}

// QIODevice::write(const char*, qint64): the log's lines with Qt 5, whose QByteArray overload is
// inline.
long long _ZN9QIODevice5writeEPKcx(void* device, const char* data, long long size)
{
    static long long (*real)(void*, const char*, long long);
    if (!real)
        real = (long long (*)(void*, const char*, long long))dlsym(RTLD_NEXT,
                                                                   "_ZN9QIODevice5writeEPKcx");
    record(data, size);
    return real(device, data, size);
}
