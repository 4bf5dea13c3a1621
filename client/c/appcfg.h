/* Client of the application configuration service, for C and for languages that call C.
 *
 * A connection owns the items that are created through it: the service ends them when it closes. A connection
 * and its items are used by one thread at a time; different connections are independent, and the functions
 * without one may be called from anywhere. Texts are UTF-8 and end with a NUL. Nothing is thrown.
 *
 * Each function that makes a request takes an error, which may be null, and fills it when it fails; it is
 * left as it was otherwise. Set its size before: appcfg_error error = {sizeof error}. Structures may grow at
 * their end; what a program was not built with is neither read nor written. */
#ifndef APPCFG_H
#define APPCFG_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct appcfg_connection appcfg_connection;
typedef struct appcfg_item appcfg_item;

typedef enum appcfg_result {
    APPCFG_DONE = 0,
    APPCFG_REFUSED = 1,       /* by the service: status and request say more */
    APPCFG_INVALID = 2,       /* an argument that cannot be sent; nothing was sent */
    APPCFG_NO_CONNECTION = 3, /* the service cannot be reached, or the connection was lost */
    APPCFG_TIMED_OUT = 4,     /* not done in time; whether the request was carried out is not known */
    APPCFG_NO_SUCH_VALUE = 5, /* what was read is not of the type that was asked for */
    APPCFG_NO_MEMORY = 6
} appcfg_result;

typedef enum appcfg_request {
    APPCFG_NO_REQUEST = -1,
    APPCFG_CREATE = 0,
    APPCFG_DELETE = 1,
    APPCFG_GET = 2,
    APPCFG_SET = 3,
    APPCFG_RAW_GET = 4,
    APPCFG_RAW_SET = 5,
    APPCFG_RESTORE = 6,
    APPCFG_CHANGE_KEY = 7
} appcfg_request;

typedef enum appcfg_storage { APPCFG_INI = 0, APPCFG_XML = 1, APPCFG_JSON = 3 } appcfg_storage;
typedef enum appcfg_strategy {
    APPCFG_NEVER = 0,
    APPCFG_INSTANT = 1,
    APPCFG_DELAYED = 2, /* three seconds after the last change */
    APPCFG_TIMED = 3    /* once a minute */
} appcfg_strategy;

enum { APPCFG_KEY_BYTES = 32, APPCFG_IV_BYTES = 16, APPCFG_MESSAGE_BYTES = 512 };

typedef struct appcfg_error {
    size_t size;                        /* sizeof(appcfg_error) */
    int32_t result;                     /* an appcfg_result */
    int32_t request;                    /* an appcfg_request: what was refused */
    int32_t status;                     /* the service's, or 0 */
    char message[APPCFG_MESSAGE_BYTES]; /* what happened, in words; cut at its end when it is longer */
} appcfg_error;

/* A backup or default path that is null or empty means that there is none. Paths have at most 255 bytes and
 * may hold
 * ${default_setting_path}, ${default_backup_path} and ${container_root_path}. */
typedef struct appcfg_description {
    size_t size;       /* sizeof(appcfg_description) */
    const char* owner; /* at most 31 bytes, like the name */
    const char* name;
    uint32_t index;
    int32_t storage; /* an appcfg_storage */
    const char* path;
    const char* backup_path;
    const char* default_path;
    int32_t save_strategy; /* an appcfg_strategy */
    int32_t backup_strategy;
    const uint8_t* key; /* APPCFG_KEY_BYTES; null for plain files */
    const uint8_t* iv;  /* APPCFG_IV_BYTES */
} appcfg_description;

/* Connects to the service below the framework's root (the environment variable KESTREL_ROOT or /mnt/kestrel).
 * The time-out, in seconds, bounds the connect and each request with its reply; 0 is the default of 90 s.
 * Null on failure.
 */
appcfg_connection* appcfg_connect(double timeout_seconds, appcfg_error* error);
/* Closes the connection; its items end. Null is allowed. Items are to be freed all the same. */
void appcfg_close(appcfg_connection* connection);

/* From now on a lost connection is made again by the call that finds it lost, and the items that were created
 * since are created anew; then told, which may be null, is called with the reason. See
 * appcfg::Connection::KeepItems. */
void appcfg_keep_items(appcfg_connection* connection, void (*told)(const char* reason, void* context),
                       void* context);

/* Creates an item, or reaches one that any connection created, without a request. Null on failure. */
appcfg_item* appcfg_create(appcfg_connection* connection, const appcfg_description* description,
                           appcfg_error* error);
appcfg_item* appcfg_open(appcfg_connection* connection, const char* owner, const char* name, uint32_t index,
                         appcfg_error* error);
/* Frees the object; an item that it created ends at the service. Null is allowed. */
void appcfg_item_free(appcfg_item* item);
/* Frees the object and leaves an item that it created to its connection. */
void appcfg_item_release(appcfg_item* item);

/* Values. A text that is returned is to be given to appcfg_free; null on failure. */
char* appcfg_get(appcfg_item* item, const char* key, appcfg_error* error);
/* All or nothing, in one request. values has room for count texts, each to be given to appcfg_free. */
appcfg_result appcfg_get_many(appcfg_item* item, const char* const* keys, size_t count, char** values,
                              appcfg_error* error);
/* The value, or otherwise when it cannot be had: the error says why. A text that is returned is a copy, also
 * of otherwise, and to be given to appcfg_free. */
char* appcfg_get_string(appcfg_item* item, const char* key, const char* otherwise, appcfg_error* error);
int64_t appcfg_get_int64(appcfg_item* item, const char* key, int64_t otherwise, appcfg_error* error);
double appcfg_get_double(appcfg_item* item, const char* key, double otherwise, appcfg_error* error);
int appcfg_get_bool(appcfg_item* item, const char* key, int otherwise, appcfg_error* error);

/* Changes values of keys that the document has. Several go in one request and are applied in order, up to the
 * first that is refused. */
appcfg_result appcfg_set(appcfg_item* item, const char* key, const char* value, appcfg_error* error);
appcfg_result appcfg_set_many(appcfg_item* item, const char* const* keys, const char* const* values,
                              size_t count, appcfg_error* error);
appcfg_result appcfg_set_int64(appcfg_item* item, const char* key, int64_t value, appcfg_error* error);
appcfg_result appcfg_set_double(appcfg_item* item, const char* key, double value, appcfg_error* error);
appcfg_result appcfg_set_bool(appcfg_item* item, const char* key, int value, appcfg_error* error);

/* A fragment of the document as text, all of it for the empty key. */
char* appcfg_raw_get(appcfg_item* item, const char* key, appcfg_error* error);
appcfg_result appcfg_raw_set(appcfg_item* item, const char* key, const char* data, appcfg_error* error);

/* Puts the default file in place of the file and its backup. Done says that the service has tried; compare
 * values where it matters. */
appcfg_result appcfg_restore(appcfg_item* item, appcfg_error* error);
/* Rewrites the files in another key, or plain for a null key. */
appcfg_result appcfg_change_key(appcfg_item* item, const uint8_t* key, const uint8_t* iv,
                                appcfg_error* error);
/* Ends the item at the service, whoever created it. The object is still to be freed. */
appcfg_result appcfg_delete(appcfg_item* item, appcfg_error* error);

/* What a status says about a request, in words. */
const char* appcfg_status_meaning(appcfg_request request, int status);
/* Frees a text that was returned; null is allowed. */
void appcfg_free(char* text);

#ifdef __cplusplus
}
#endif

#endif
