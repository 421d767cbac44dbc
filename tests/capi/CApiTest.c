/* The C interface, compiled as C99: values, every kind of failure with its exact message
 * and method, NULL pointers, handles across Reset and across objects, and set-ups. */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "capi/kalvos_c.h"

static int failures = 0;

#define CHECK(cond)                                                            \
    do {                                                                       \
        if (!(cond)) {                                                         \
            fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #cond); \
            ++failures;                                                        \
        }                                                                      \
    } while (0)

/* The status of a call and the failure the object then holds. */
static void expect(int line, const kalvos* k, int status, int wantStatus, const char* method,
                   const char* message) {
    if (status != wantStatus || strcmp(kalvos_method(k), method) != 0 ||
        strcmp(kalvos_message(k), message) != 0) {
        fprintf(stderr, "line %d: got %d [%s] [%s], expected %d [%s] [%s]\n", line, status,
                kalvos_method(k), kalvos_message(k), wantStatus, method, message);
        ++failures;
    }
}
#define EXPECT_OK(k, call) expect(__LINE__, k, call, KALVOS_OK, "", "")

static void test_compute(kalvos* k) {
    static const struct {
        const char* expr;
        const char* errortext;
        int status;
        double value;
        const char* method;
        const char* message;
    } cases[] = {
        {"2 * max(a, 3) + 1", NULL, KALVOS_OK, 11, "", ""},
        {"#x[2] - 1", "", KALVOS_OK, 6, "", ""},
        {"1 / (a - 5)", " in line 4", KALVOS_FAILED, 0, "ComputExpr",
         "Evaluating [1/(a-5)]: Division by zero. in line 4"},
        {"", NULL, KALVOS_FAILED, 0, "ComputeExpr", "Expression is empty."},
        {"b + 1", "!", KALVOS_FAILED, 0, "ComputExpr",
         "Evaluating [b+1]: The variable 'b' does not exist.!"},
        {"s * 2", NULL, KALVOS_FAILED, 0, "ComputExpr",
         "Evaluating [s*2]: The variable 's' is not a numeric variable."},
        {"sin(1, 2)", NULL, KALVOS_FAILED, 0, "ComputFunc",
         "Evaluating function [sin(1,2)]: Function not found or invalid for 2 parameters."},
    };
    EXPECT_OK(k, kalvos_set_num(k, "a", 5));
    EXPECT_OK(k, kalvos_set_num(k, "x2", 7));
    EXPECT_OK(k, kalvos_set_str(k, "s", "run"));
    for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        double value = -1;
        int status = kalvos_compute(k, cases[i].expr, cases[i].errortext, &value);
        expect((int)i, k, status, cases[i].status, cases[i].method, cases[i].message);
        if (cases[i].status == KALVOS_OK) CHECK(value == cases[i].value);
    }

    int truth = -1;
    EXPECT_OK(k, kalvos_compute_bool(k, "a >= 5 @@ !0", NULL, &truth));
    CHECK(truth == 1);
    EXPECT_OK(k, kalvos_compute_bool(k, "FALSE", NULL, &truth));
    CHECK(truth == 0);
    expect(__LINE__, k, kalvos_compute_bool(k, "(a", "", &truth), KALVOS_FAILED, "ComputeExpr",
           "Parenthesis in expression [(a] are wrong.");

    const char* text = NULL;
    EXPECT_OK(k, kalvos_compute_str(k, "$[s]_[a].dat", NULL, &text));
    CHECK(strcmp(text, "run_5.dat") == 0);
    expect(__LINE__, k, kalvos_compute_str(k, "[nope]", " here", &text), KALVOS_FAILED,
           "ComputExprStr", "Evaluating [[nope]]: The variable 'nope' does not exist. here");
}

static void test_store(kalvos* k) {
    double value = 0;
    int flag = -1;
    EXPECT_OK(k, kalvos_set_num(k, "v", 2.5));
    EXPECT_OK(k, kalvos_get_num(k, "v", &value));
    CHECK(value == 2.5);
    EXPECT_OK(k, kalvos_has(k, "v", &flag));
    CHECK(flag == 1);
    EXPECT_OK(k, kalvos_delete(k, "v", &flag));
    CHECK(flag == 1);
    EXPECT_OK(k, kalvos_delete(k, "v", &flag));
    CHECK(flag == 0);
    EXPECT_OK(k, kalvos_delete(k, "v", NULL));
    EXPECT_OK(k, kalvos_has(k, "v", &flag));
    CHECK(flag == 0);
    expect(__LINE__, k, kalvos_get_num(k, "v", &value), KALVOS_FAILED, "GetVarNum",
           "The variable 'v' does not exist.");
    EXPECT_OK(k, kalvos_set_str(k, "t", "x"));
    expect(__LINE__, k, kalvos_get_num(k, "t", &value), KALVOS_FAILED, "GetVarNum",
           "The variable 't' is not a numeric variable.");

    /* Texts with NUL bytes, in a name and in a value, keep their length. */
    const char* result = NULL;
    size_t length = 0;
    EXPECT_OK(k, kalvos_set_str_n(k, "n\0m", 3, "a\0b", 3));
    EXPECT_OK(k, kalvos_compute_str_n(k, "<[n\0m]>", 7, NULL, &result, &length));
    CHECK(length == 5 && memcmp(result, "<a\0b>", 5) == 0);
    EXPECT_OK(k, kalvos_has(k, "n", &flag));
    CHECK(flag == 0);

    /* A length no string can hold fails before the text is read. */
    expect(__LINE__, k, kalvos_set_str_n(k, "big", 3, "", SIZE_MAX), KALVOS_NO_MEMORY,
           "kalvos_set_str_n", "A text is longer than a string can be.");
    EXPECT_OK(k, kalvos_set_cache_limits(k, 0, 0));
    EXPECT_OK(k, kalvos_set_cache_limits(k, 16, 1 << 16));
}

static void test_compiled(kalvos* k) {
    kalvos_compiled* handle = NULL;
    kalvos_compiled* faulty = NULL;
    double value = 0;
    EXPECT_OK(k, kalvos_set_num(k, "u", 3));
    EXPECT_OK(k, kalvos_compile(k, "u * u + 1", " (h)", &handle));
    EXPECT_OK(k, kalvos_compute_compiled(k, handle, &value));
    CHECK(value == 10);
    EXPECT_OK(k, kalvos_set_num(k, "u", 4));
    EXPECT_OK(k, kalvos_compute_compiled(k, handle, &value));
    CHECK(value == 17);
    /* A faulty text compiles; computing it fails as kalvos_compute would. */
    EXPECT_OK(k, kalvos_compile(k, "u +* 2", NULL, &faulty));
    expect(__LINE__, k, kalvos_compute_compiled(k, faulty, &value), KALVOS_FAILED, "ComputExpr",
           "Evaluating [u+*2]: Operator at position 3 is invalid.");

    kalvos* other = kalvos_create();
    CHECK(other != NULL);
    expect(__LINE__, other, kalvos_compute_compiled(other, handle, &value), KALVOS_FAILED,
           "ComputeCompiled",
           "The compiled expression [u * u + 1] belongs to another evaluator or was made "
           "before Reset. (h)");
    kalvos_destroy(other);

    EXPECT_OK(k, kalvos_reset(k));
    expect(__LINE__, k, kalvos_compute_compiled(k, handle, &value), KALVOS_FAILED,
           "ComputeCompiled",
           "The compiled expression [u * u + 1] belongs to another evaluator or was made "
           "before Reset. (h)");
    /* The reset emptied the store. */
    int flag = -1;
    EXPECT_OK(k, kalvos_has(k, "u", &flag));
    CHECK(flag == 0);
    kalvos_compiled_destroy(faulty);

    /* A handle outlives its evaluator. */
    kalvos* owner = kalvos_create();
    kalvos_compiled* kept = NULL;
    EXPECT_OK(owner, kalvos_compile(owner, "pi()", NULL, &kept));
    kalvos_destroy(owner);
    kalvos_compiled_destroy(kept);
    kalvos_compiled_destroy(handle);
    kalvos_compiled_destroy(NULL);
}

/* Each value of a set-up's expression and "$" lines, appended to a text as "line:value;". */
static void collect(void* context, unsigned long line, int is_text, double number,
                    const char* text) {
    char* seen = (char*)context;
    char item[64];
    if (is_text) {
        snprintf(item, sizeof item, "%lu:%s;", line, text);
    } else {
        snprintf(item, sizeof item, "%lu:%g;", line, number);
    }
    strncat(seen, item, 255 - strlen(seen));
}

static void test_setup(kalvos* k) {
    static const char setup[] =
        "\xEF\xBB\xBF// flume\r\n"
        "depth = 0.8  // m\r\n"
        "x[1 + 1] = depth * 2\n"
        "case = $run_[depth] // kept\n"
        "x2\n"
        "$[case]\n"
        "bad = 1 / 0\n"
        "after = 1\n";
    char seen[256] = "";
    double value = 0;
    size_t count = 99;
    unsigned long line = 0;
    const char* message = NULL;
    expect(__LINE__, k, kalvos_run_setup(k, setup, "flume.cfg", collect, seen), KALVOS_FAILED,
           "ComputExpr", "Evaluating [1/0]: Division by zero. (flume.cfg line 7)");
    CHECK(strcmp(seen, "5:1.6;6:run_0.8 // kept;") == 0);
    EXPECT_OK(k, kalvos_get_num(k, "x2", &value));
    CHECK(value == 1.6);
    expect(__LINE__, k, kalvos_get_num(k, "after", &value), KALVOS_FAILED, "GetVarNum",
           "The variable 'after' does not exist.");

    /* Keep going: every line is read, each failure kept. */
    expect(__LINE__, k, kalvos_run_setup_all(k, "a = 1/0\nb = 2\nc = q\n", NULL, NULL, NULL,
                                             &count),
           KALVOS_FAILED, "ComputExpr", "Evaluating [1/0]: Division by zero. (line 1)");
    CHECK(count == 2);
    CHECK(kalvos_setup_failure(k, 1, &line, &message) == KALVOS_OK);
    CHECK(line == 3 && strcmp(message, "Evaluating [q]: The variable 'q' does not exist. (line 3)") == 0);
    CHECK(kalvos_setup_failure(k, 2, &line, &message) == KALVOS_FAILED);
    CHECK(strcmp(kalvos_message(k), "Evaluating [1/0]: Division by zero. (line 1)") == 0);
    EXPECT_OK(k, kalvos_get_num(k, "b", &value));
    EXPECT_OK(k, kalvos_run_setup_all(k, "b = 3", "", NULL, NULL, &count));
    CHECK(count == 0 && kalvos_setup_failure(k, 0, &line, &message) == KALVOS_FAILED);
    expect(__LINE__, k, kalvos_run_setup(k, NULL, NULL, NULL, NULL), KALVOS_NULL_ARGUMENT,
           "kalvos_run_setup", "A required pointer argument is NULL.");
}

static void test_null(kalvos* k) {
    const char* nullMessage = "A required pointer argument is NULL.";
    double value = 0;
    int flag = 0;
    const char* text = NULL;
    kalvos_compiled* handle = NULL;
#define EXPECT_NULL(call, name) expect(__LINE__, k, call, KALVOS_NULL_ARGUMENT, name, nullMessage)
    EXPECT_NULL(kalvos_set_num(k, NULL, 1), "kalvos_set_num");
    EXPECT_NULL(kalvos_set_str(k, "a", NULL), "kalvos_set_str");
    EXPECT_NULL(kalvos_set_str_n(k, NULL, 0, "", 0), "kalvos_set_str_n");
    EXPECT_NULL(kalvos_delete(k, NULL, &flag), "kalvos_delete");
    EXPECT_NULL(kalvos_get_num(k, "a", NULL), "kalvos_get_num");
    EXPECT_NULL(kalvos_has(k, NULL, &flag), "kalvos_has");
    EXPECT_NULL(kalvos_compute(k, NULL, NULL, &value), "kalvos_compute");
    EXPECT_NULL(kalvos_compute(k, "1", NULL, NULL), "kalvos_compute");
    EXPECT_NULL(kalvos_compute_bool(k, "1", NULL, NULL), "kalvos_compute_bool");
    EXPECT_NULL(kalvos_compute_str(k, NULL, NULL, &text), "kalvos_compute_str");
    EXPECT_NULL(kalvos_compute_str_n(k, "", 0, NULL, NULL, NULL), "kalvos_compute_str_n");
    EXPECT_NULL(kalvos_compile(k, "1", NULL, NULL), "kalvos_compile");
    EXPECT_NULL(kalvos_compute_compiled(k, NULL, &value), "kalvos_compute_compiled");
#undef EXPECT_NULL
    /* The next call that succeeds clears the failure. */
    EXPECT_OK(k, kalvos_compute(k, "1", NULL, &value));

    /* A NULL object: a status, and empty texts. */
    CHECK(kalvos_reset(NULL) == KALVOS_NULL_ARGUMENT);
    CHECK(kalvos_compute(NULL, "1", NULL, &value) == KALVOS_NULL_ARGUMENT);
    CHECK(kalvos_compile(NULL, "1", NULL, &handle) == KALVOS_NULL_ARGUMENT);
    CHECK(kalvos_set_cache_limits(NULL, 1, 1) == KALVOS_NULL_ARGUMENT);
    CHECK(strcmp(kalvos_message(NULL), "") == 0 && strcmp(kalvos_method(NULL), "") == 0);
    kalvos_destroy(NULL);
}

int main(void) {
    kalvos* k = kalvos_create();
    if (k == NULL) return 1;
    test_compute(k);
    test_store(k);
    test_compiled(k);
    test_setup(k);
    test_null(k);
    kalvos_destroy(k);
    if (failures != 0) fprintf(stderr, "%d failures\n", failures);
    return failures == 0 ? 0 : 1;
}
