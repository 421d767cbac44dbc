// [embedding]
#include <stdio.h>

#include "capi/kalvos_c.h"

int main(void) {
    kalvos* k = kalvos_create();
    double value = 0;
    kalvos_set_num(k, "a", 5);
    if (kalvos_compute(k, "2 * max(a, 3) + 1", NULL, &value) == KALVOS_OK) printf("%g\n", value);
    if (kalvos_compute(k, "1 / (a - 5)", " in line 4", &value) != KALVOS_OK) {
        printf("%s: %s\n", kalvos_method(k), kalvos_message(k));
    }
    kalvos_destroy(k);
    return 0;
}
// [embedding-end]
