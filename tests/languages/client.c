/* What a C program sees: each line is checked by languages_test.py. */
#include "appcfg.h"

#include <inttypes.h>
#include <stdio.h>

static void told(const char* reason, void* context) {
    (void)reason;
    ++*(int*)context;
}

/* Values of several types, and what a key without a value gives. */
static void use_values(appcfg_item* made, appcfg_error* error) {
    const char* const keys[] = {"text", "number"};
    const char* const values[] = {"a b", "7"};
    char* got[2];
    printf("set %d\n", appcfg_set_many(made, keys, values, 2, error));
    printf("get %d", appcfg_get_many(made, keys, 2, got, error));
    printf(" %s %s\n", got[0], got[1]);
    appcfg_free(got[0]);
    appcfg_free(got[1]);
    printf("int %" PRId64 " %" PRId64 "\n", appcfg_get_int64(made, "number", -1, NULL),
           appcfg_get_int64(made, "text", -1, NULL));
    printf("bool %d double %g\n", appcfg_get_bool(made, "none", 1, NULL),
           appcfg_get_double(made, "number", 0, NULL));
    got[0] = appcfg_get(made, "none", error);
    printf("none %d %d %d %d\n", got[0] == NULL, error->result, error->request, error->status);
}

int main(int argc, char** argv) {
    appcfg_error error = {sizeof error, 0, 0, 0, ""};
    struct {
        size_t size;
        int32_t result;
    } shorter = {sizeof shorter, 0};
    appcfg_description item = {sizeof item,    "lang",         "c",  0,   APPCFG_JSON, argv[1], NULL, NULL,
                               APPCFG_INSTANT, APPCFG_INSTANT, NULL, NULL};
    int times = 0;
    appcfg_connection* const connection = appcfg_connect(5, &error);
    appcfg_keep_items(connection, told, &times);
    appcfg_item* const made = appcfg_create(connection, &item, &error);
    if (argc != 2 || made == NULL) {
        printf("%s\n", error.message);
        return 1;
    }
    use_values(made, &error);
    appcfg_get(made, NULL, (appcfg_error*)(void*)&shorter);
    printf("null %d\n", shorter.result);
    printf("raw %d", appcfg_raw_set(made, "", "{\"text\": \"new\"}", &error));
    char* const got = appcfg_raw_get(made, "text", &error);
    printf(" %s\n", got);
    appcfg_free(got);
    printf("delete %d", appcfg_delete(made, &error));
    printf(" %d\n", appcfg_delete(made, &error));
    appcfg_item_free(made);
    appcfg_close(connection);
    printf("told %d\n", times);
    return 0;
}
