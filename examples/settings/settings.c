/* Keeps an application's settings: prints them, after changing those that the arguments name (KEY=VALUE). */
#include <appcfg.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

static int keep(appcfg_item* settings, int count, char** pairs, appcfg_error* error) {
    for (int at = 0; at < count; ++at) {
        char* const equals = strchr(pairs[at], '=');
        if (equals != NULL) {
            *equals = '\0';
        }
        if (appcfg_set(settings, pairs[at], equals == NULL ? "" : equals + 1, error) != APPCFG_DONE) {
            return 1;
        }
    }
    char* const name = appcfg_get(settings, "station.name", error);
    printf("station %s\n", name == NULL ? "none" : name);
    appcfg_free(name);
    printf("volume %" PRId64 "\n", appcfg_get_int64(settings, "volume", 10, NULL));
    printf("muted %s\n", appcfg_get_bool(settings, "muted", 0, NULL) ? "yes" : "no");
    return name == NULL;
}

int main(int argc, char** argv) {
    appcfg_error error = {.size = sizeof error};
    const appcfg_description description = {.size = sizeof description,
                                            .owner = "radio",
                                            .name = "settings",
                                            .storage = APPCFG_JSON,
                                            .path = "${default_setting_path}radio.json",
                                            .backup_path = "${default_backup_path}radio.json",
                                            .default_path = "${default_setting_path}radio.default.json",
                                            .save_strategy = APPCFG_INSTANT,
                                            .backup_strategy = APPCFG_INSTANT};
    appcfg_connection* const connection = appcfg_connect(0, &error);
    appcfg_item* const settings = connection == NULL ? NULL : appcfg_create(connection, &description, &error);
    const int failed = settings == NULL || keep(settings, argc - 1, argv + 1, &error);
    if (failed) {
        fprintf(stderr, "%s\n", error.message);
    }
    appcfg_item_free(settings);
    appcfg_close(connection);
    return failed;
}
