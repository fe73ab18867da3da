// SPDX-License-Identifier: MIT
// Waits until points of the frame buffer have given colours and prints the time (CLOCK_MONOTONIC, seconds):
//   watch-screen SECONDS X,Y=RRGGBB...

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

enum { width = 800, octets = 4 };

static double now(void)
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static int shows(int screen, const char *point)
{
    unsigned int x;
    unsigned int y;
    unsigned int colour;
    unsigned char pixel[octets];
    if (sscanf(point, "%u,%u=%x", &x, &y, &colour) != 3) {
        fprintf(stderr, "watch-screen: not understood: %s\n", point);
        exit(2);
    }
    return pread(screen, pixel, sizeof pixel, (off_t)(y * width + x) * octets) == sizeof pixel &&
           (colour & 0xff) == pixel[0] && (colour >> 8 & 0xff) == pixel[1] && colour >> 16 == pixel[2];
}

int main(int count, char **words)
{
    const struct timespec pause = {.tv_nsec = 2000000};
    int screen = open("/dev/fb0", O_RDONLY);
    if (screen < 0 || count < 3) {
        perror("watch-screen");
        return 2;
    }
    for (double end = now() + atof(words[1]); now() < end; nanosleep(&pause, NULL)) {
        int index = 2;
        while (index < count && shows(screen, words[index])) {
            ++index;
        }
        if (index == count) {
            printf("%.6f\n", now());
            return 0;
        }
    }
    return 1;
}
