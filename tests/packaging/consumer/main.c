/* The consumer of the C interface, built with pkg-config alone; it prints what main.cpp
 * prints. */
#include <stdio.h>

#include "capi/kalvos_c.h"

int main(void) {
    kalvos* k = kalvos_create();
    double value = 0;
    int truth = 0;
    const char* text = NULL;
    int status = kalvos_set_num(k, "a", 5);
    if (status == KALVOS_OK) status = kalvos_compute(k, "2 * max(a, 3) + 1", NULL, &value);
    if (status == KALVOS_OK) printf("%g\n", value);
    if (status == KALVOS_OK) status = kalvos_compute_bool(k, "a >= 5 @@ !0", NULL, &truth);
    if (status == KALVOS_OK) printf("%d\n", truth);
    if (status == KALVOS_OK) status = kalvos_compute_str(k, "$run_[a].dat", NULL, &text);
    if (status == KALVOS_OK) printf("%s\n", text);
    if (status == KALVOS_OK) status = kalvos_compute(k, "1 / (a - 5)", " in line 4", &value);
    if (status != KALVOS_OK) fprintf(stderr, "%s\n", kalvos_message(k));
    kalvos_destroy(k);
    return status == KALVOS_OK ? 0 : 1;
}
