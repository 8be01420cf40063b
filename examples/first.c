/* A page from a file to a picture: cc first.c $(pkg-config --cflags --libs tessel) && ./a.out page.html >page.ppm */
#include <stdio.h>
#include <tessel_host.h>
#include <time.h>

enum { WIDTH = 800, HEIGHT = 600 };
static uint32_t pixels[WIDTH * HEIGHT];

int main(int argc, char **argv) {
    platform_FetchCounts counts;
    if (argc != 2 || !tessel_Init(pixels, WIDTH, HEIGHT)) /* the window may be any pointer but NULL */
        return 1;
    tessel_OpenURL(argv[1]);
    do { /* the page and its pictures arrive on other threads */
        nanosleep(&(struct timespec){0, 10000000}, NULL);
        platform_GetFetchCounts(&counts);
    } while (counts.pages_running || counts.images_running);
    tessel_Render(pixels);
    tessel_ShutDown();

    printf("P6 %d %d 255\n", WIDTH, HEIGHT);
    for (int i = 0; i < WIDTH * HEIGHT; ++i) { /* each pixel is 0x00RRGGBB */
        const unsigned char rgb[3] = {pixels[i] >> 16 & 255, pixels[i] >> 8 & 255, pixels[i] & 255};
        fwrite(rgb, 1, sizeof rgb, stdout);
    }
    return counts.pages_loaded ? 0 : 2;
}
