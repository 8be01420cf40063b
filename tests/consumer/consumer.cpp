// Loads a page, follows its first link by the keyboard and prints the titles of both.
#include <tessel_host.h>

#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

static void WaitAndPrintTitle() {
    platform_FetchCounts counts;
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        platform_GetFetchCounts(&counts);
    } while (counts.pages_running + counts.images_running > 0);
    char title[TESSEL_TITLE_SIZE] = "no title";
    tessel_GetTitle(title);
    std::puts(title);
}

int main(int argc, char **argv) {
    std::vector<std::uint32_t> pixels(320 * 240);
    if (argc != 2 || !tessel_Init(pixels.data(), 320, 240))
        return 1;
    tessel_OpenURL(argv[1]);
    WaitAndPrintTitle();
    tessel_OnKeyDown(9);
    tessel_OnKeyDown(13);
    WaitAndPrintTitle();
    tessel_ShutDown();
}
