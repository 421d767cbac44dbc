#ifndef KALVOS_C_H
#define KALVOS_C_H

/* The Kalvos evaluator for C (C99) and for every language that calls C.
 *
 * An evaluator is an opaque `kalvos` object. Every call that can fail returns a status;
 * KALVOS_OK is 0. After a failure the object holds its message and the name of the method
 * that raised it (kalvos_message, kalvos_method) until its next call; after a success both
 * are "". Values and messages are exactly those of the C++ class Kalvos.
 *
 * Texts are NUL-terminated; the functions ending in _n take a text with its length, for
 * texts that may hold NUL bytes. A text the object returns (kalvos_compute_str, the
 * message) belongs to the object and stays valid until the object's next call, other than
 * kalvos_message and kalvos_method. An error text may be NULL, which means "".
 *
 * No call lets a C++ exception out. One object serves one thread at a time; separate
 * objects may be used from separate threads. */

#include <stddef.h>

#include "kalvos_export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kalvos kalvos;
/* A text compiled once, computed by kalvos_compute_compiled as often as the host likes. */
typedef struct kalvos_compiled kalvos_compiled;

typedef enum kalvos_status {
    KALVOS_OK = 0,
    /* The evaluator raised: a faulty expression, an unknown or text variable, a handle of
     * another object or of one that was reset since. */
    KALVOS_FAILED = 1,
    /* A pointer that the call needs was NULL; nothing was done. */
    KALVOS_NULL_ARGUMENT = 2,
    /* Memory could not be had, or a text was longer than a string can be. */
    KALVOS_NO_MEMORY = 3,
    /* Anything else; not expected. */
    KALVOS_INTERNAL = 4
} kalvos_status;

/** A new evaluator with an empty store; NULL when memory could not be had. */
KALVOS_EXPORT kalvos* kalvos_create(void);
/** Frees the evaluator; NULL is allowed. Handles it made stay valid objects to destroy. */
KALVOS_EXPORT void kalvos_destroy(kalvos* k);
/** Back to the fresh state: empty store, reseeded generator. Its handles stop working. */
KALVOS_EXPORT int kalvos_reset(kalvos* k);

/** The message of the last failure, or ""; "" for a NULL object. */
KALVOS_EXPORT const char* kalvos_message(const kalvos* k);
/** The method that raised the last failure (a C function's name for a NULL argument). */
KALVOS_EXPORT const char* kalvos_method(const kalvos* k);

/* The store. */
KALVOS_EXPORT int kalvos_set_num(kalvos* k, const char* name, double value);
KALVOS_EXPORT int kalvos_set_str(kalvos* k, const char* name, const char* value);
KALVOS_EXPORT int kalvos_set_str_n(kalvos* k, const char* name, size_t name_length,
                                   const char* value, size_t value_length);
/** Removes a variable; *existed (when not NULL) tells whether there was one. */
KALVOS_EXPORT int kalvos_delete(kalvos* k, const char* name, int* existed);
/** The number of a variable; KALVOS_FAILED when there is none or it holds a text. */
KALVOS_EXPORT int kalvos_get_num(kalvos* k, const char* name, double* value);
/** *exists is 1 when a variable has the name, else 0. */
KALVOS_EXPORT int kalvos_has(kalvos* k, const char* name, int* exists);

/* Evaluation. */
KALVOS_EXPORT int kalvos_compute(kalvos* k, const char* expr, const char* errortext, double* value);
/** *value is 1 or 0. */
KALVOS_EXPORT int kalvos_compute_bool(kalvos* k, const char* expr, const char* errortext,
                                      int* value);
/** *result is the expanded text, NUL-terminated, owned by the object. */
KALVOS_EXPORT int kalvos_compute_str(kalvos* k, const char* text, const char* errortext,
                                     const char** result);
/** The same for a text that may hold NUL bytes; *result_length (when not NULL) is set. */
KALVOS_EXPORT int kalvos_compute_str_n(kalvos* k, const char* text, size_t text_length,
                                       const char* errortext, const char** result,
                                       size_t* result_length);

/** Compiles the expression; a faulty text gives a handle that fails when computed. */
KALVOS_EXPORT int kalvos_compile(kalvos* k, const char* expr, const char* errortext,
                                 kalvos_compiled** handle);
/** Exactly kalvos_compute of the handle's texts, with the store as it is now. */
KALVOS_EXPORT int kalvos_compute_compiled(kalvos* k, const kalvos_compiled* handle, double* value);
/** Frees a handle, before or after its evaluator; NULL is allowed. */
KALVOS_EXPORT void kalvos_compiled_destroy(kalvos_compiled* handle);

/** The cache of compiled texts: entries and bytes at most; 0 entries turns it off. */
KALVOS_EXPORT int kalvos_set_cache_limits(kalvos* k, size_t entries, size_t bytes);

/* Set-up files: the lines NAME = EXPR, NAME = $TEXT, EXPR, $TEXT, // comments and blank lines,
 * applied to the store in order (x[i + 1] = EXPR stores the variable x[i + 1] reads; a UTF-8
 * byte-order mark and CR LF endings are allowed). The message of a failing line ends in
 * " (SOURCE line N)", or " (line N)" when source is NULL or "". */

/** Receives the value of an expression line (is_text 0, number) or the text of a "$" line
 * (is_text 1, text, valid during the call only). */
typedef void (*kalvos_setup_callback)(void* context, unsigned long line, int is_text, double number,
                                      const char* text);
/** Applies a set-up; stops at the first failing line with KALVOS_FAILED and its message.
 * on_value may be NULL. */
KALVOS_EXPORT int kalvos_run_setup(kalvos* k, const char* text, const char* source,
                                   kalvos_setup_callback on_value, void* context);
/** The same, but every line is read: *failures (when not NULL) receives how many lines failed,
 * each readable with kalvos_setup_failure. KALVOS_FAILED when any did, with the first one's
 * message and method. */
KALVOS_EXPORT int kalvos_run_setup_all(kalvos* k, const char* text, const char* source,
                                       kalvos_setup_callback on_value, void* context,
                                       size_t* failures);
/** Failure `index` of the last kalvos_run_setup_all: its line number and message, owned by the
 * object as a returned text is. KALVOS_FAILED for an index past the last; the object's message
 * is not changed. */
KALVOS_EXPORT int kalvos_setup_failure(const kalvos* k, size_t index, unsigned long* line,
                                       const char** message);

#ifdef __cplusplus
}
#endif

#endif /* KALVOS_C_H */
