// SPDX-License-Identifier: MIT
// A touch screen for a virtual panel: a multi-touch device made with uinput, moved by lines on the standard input:
//   down X Y    move X Y    up
// Each line is answered by the time (CLOCK_MONOTONIC, seconds) at which its event was handed to the kernel.

#include <fcntl.h>
#include <linux/uinput.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

enum { width = 800, height = 480, contacts = 10 };

static int device;

static int emit(int type, int code, int value)
{
    struct input_event event = {.type = type, .code = code, .value = value};
    return write(device, &event, sizeof event) == sizeof event;
}

static int add_axis(int code, int maximum)
{
    struct uinput_abs_setup axis = {.code = code, .absinfo.maximum = maximum};
    return ioctl(device, UI_SET_ABSBIT, code) == 0 && ioctl(device, UI_ABS_SETUP, &axis) == 0;
}

static int make_device(void)
{
    struct uinput_setup setup = {.id = {.bustype = BUS_VIRTUAL, .vendor = 1, .product = 1}, .name = "panel touch screen"};
    device = open("/dev/uinput", O_WRONLY);
    return device >= 0 && ioctl(device, UI_SET_EVBIT, EV_KEY) == 0 && ioctl(device, UI_SET_KEYBIT, BTN_TOUCH) == 0 &&
           ioctl(device, UI_SET_EVBIT, EV_ABS) == 0 && ioctl(device, UI_SET_PROPBIT, INPUT_PROP_DIRECT) == 0 &&
           add_axis(ABS_X, width - 1) && add_axis(ABS_Y, height - 1) && add_axis(ABS_MT_SLOT, contacts - 1) &&
           add_axis(ABS_MT_TRACKING_ID, 65535) && add_axis(ABS_MT_POSITION_X, width - 1) &&
           add_axis(ABS_MT_POSITION_Y, height - 1) && ioctl(device, UI_DEV_SETUP, &setup) == 0 &&
           ioctl(device, UI_DEV_CREATE) == 0;
}

static int place(int x, int y)
{
    return emit(EV_ABS, ABS_MT_POSITION_X, x) && emit(EV_ABS, ABS_MT_POSITION_Y, y) && emit(EV_ABS, ABS_X, x) &&
           emit(EV_ABS, ABS_Y, y);
}

static int obey(const char *line)
{
    static int contact;
    int x;
    int y;
    int done = 0;
    if (sscanf(line, "down %d %d", &x, &y) == 2) {
        done = emit(EV_ABS, ABS_MT_SLOT, 0) && emit(EV_ABS, ABS_MT_TRACKING_ID, ++contact & 65535) && place(x, y) &&
               emit(EV_KEY, BTN_TOUCH, 1);
    } else if (sscanf(line, "move %d %d", &x, &y) == 2) {
        done = place(x, y);
    } else if (strcmp(line, "up\n") == 0) {
        done = emit(EV_ABS, ABS_MT_TRACKING_ID, -1) && emit(EV_KEY, BTN_TOUCH, 0);
    }
    return done && emit(EV_SYN, SYN_REPORT, 0);
}

int main(void)
{
    char line[64];
    if (!make_device()) {
        perror("touch");
        return 1;
    }
    while (fgets(line, sizeof line, stdin)) {
        struct timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        if (!obey(line)) {
            fprintf(stderr, "touch: not understood, or not taken: %s", line);
            continue;
        }
        printf("%lld.%06ld %s", (long long)now.tv_sec, now.tv_nsec / 1000, line);
        fflush(stdout);
    }
    return 0;
}
