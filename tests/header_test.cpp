// The public headers stand alone, as C++.
#include "tessel_host.h"

int header_test_cpp();

int header_test_cpp() {
    char szTitle[TESSEL_TITLE_SIZE] = "";
    tessel_GetTitle(szTitle);
    return szTitle[0];
}
