/* The public headers stand alone, as C. */
#include "tessel.h"
#include "tessel_host.h"

int header_test_c(void);

int header_test_c(void) {
    platform_FetchCounts counts;
    tessel_Callback callback = 0;
    tessel_SetCallback(TESSEL_CALLBACK_CHANGED, callback);
    platform_GetFetchCounts(&counts);
    return (int)counts.pages_running;
}
