// Preloaded into the updater by the simulator to catch the screen as the program leaves it: the
// moment its windows start to go away, or it ends (a restart), the whole screen is grabbed
// before the program goes on. Grabbing from outside on a clock would miss that moment, since a
// quiet run closes its dialog within milliseconds of its last line.
//
// Active only in the process named kelloadui.bin (wrappers such as strace or qemu load it too)
// and only while KELSIM_GRAB_DIR names a folder; frames are written there as close-NN.png (and
// the colours of the message lines by line_colours.c).
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

extern char** environ;

void kelsim_colours_start(void);

static pid_t active_pid; // the program's own process; its children never grab
static int frames;

__attribute__((constructor)) static void init(void)
{
    if (strcmp(program_invocation_short_name, "kelloadui.bin") != 0 || !getenv("KELSIM_GRAB_DIR"))
        return;
    active_pid = getpid();
    kelsim_colours_start();
    // The program's shell commands must not carry the shim.
    unsetenv("LD_PRELOAD");
}

static int active(void)
{
    return active_pid != 0 && getpid() == active_pid;
}

int kelsim_grab_active(void)
{
    return active();
}

static void grab(void)
{
    char path[4096];
    snprintf(path, sizeof path, "png:%s/close-%02d.png", getenv("KELSIM_GRAB_DIR"), ++frames);
    char* argv[] = {"import", "-window", "root", path, NULL};
    pid_t child;
    if (posix_spawnp(&child, "import", NULL, NULL, argv, environ) != 0)
        return;
    while (waitpid(child, NULL, 0) < 0 && errno == EINTR)
        ;
}

// More than one window on screen: the background and a dialog. When only the background is
// left, the frame before already showed everything the program had to say.
static int dialogShown(xcb_connection_t* c)
{
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    xcb_query_tree_reply_t* tree = xcb_query_tree_reply(c, xcb_query_tree(c, root), NULL);
    if (!tree)
        return 0;
    int shown = 0;
    const xcb_window_t* children = xcb_query_tree_children(tree);
    for (int i = 0; i < xcb_query_tree_children_length(tree); ++i) {
        xcb_get_window_attributes_reply_t* attributes = xcb_get_window_attributes_reply(
            c, xcb_get_window_attributes(c, children[i]), NULL);
        if (attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE)
            ++shown;
        free(attributes);
    }
    free(tree);
    return shown > 1;
}

static void beforeWindowGoes(xcb_connection_t* c)
{
    if (active() && dialogShown(c))
        grab();
}

xcb_void_cookie_t xcb_unmap_window(xcb_connection_t* c, xcb_window_t window)
{
    static xcb_void_cookie_t (*real)(xcb_connection_t*, xcb_window_t);
    if (!real)
        real = (xcb_void_cookie_t(*)(xcb_connection_t*, xcb_window_t))dlsym(RTLD_NEXT,
                                                                            "xcb_unmap_window");
    beforeWindowGoes(c);
    return real(c, window);
}

xcb_void_cookie_t xcb_destroy_window(xcb_connection_t* c, xcb_window_t window)
{
    static xcb_void_cookie_t (*real)(xcb_connection_t*, xcb_window_t);
    if (!real)
        real = (xcb_void_cookie_t(*)(xcb_connection_t*, xcb_window_t))dlsym(RTLD_NEXT,
                                                                            "xcb_destroy_window");
    beforeWindowGoes(c);
    return real(c, window);
}

// A restart ends the program at once, with its windows still on screen.
void _exit(int status)
{
    static void (*real)(int);
    if (!real)
        real = (void (*)(int))dlsym(RTLD_NEXT, "_exit");
    if (active())
        grab();
    real(status);
    abort(); // not reached: keeps the compiler's noreturn promise
}
