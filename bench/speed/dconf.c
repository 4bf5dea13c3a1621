/* What a user might pick instead: the median in us of a synchronous write to a database of a thousand keys.
 */
#include <dconf.h>
#include <stdio.h>
#include <stdlib.h>

enum { KEYS = 1000, WRITES = 101 };

static int Compare(const void* one, const void* other) {
    const gint64 a = *(const gint64*)one;
    const gint64 b = *(const gint64*)other;
    return (a > b) - (a < b);
}

int main(void) {
    DConfClient* const client = dconf_client_new();
    DConfChangeset* const all = dconf_changeset_new();
    static gint64 times[WRITES];
    for (int at = 0; at < KEYS; ++at) {
        char* const key = g_strdup_printf("/bench/k%d", at);
        dconf_changeset_set(all, key, g_variant_new_string("v"));
        g_free(key);
    }
    if (!dconf_client_change_sync(client, all, NULL, NULL, NULL)) {
        return 1;
    }
    for (int at = 0; at < WRITES; ++at) {
        const gint64 start = g_get_monotonic_time();
        GVariant* const value = g_variant_new_string(at % 2 ? "w" : "x");
        if (!dconf_client_write_sync(client, "/bench/k5", value, NULL, NULL, NULL)) {
            return 1;
        }
        times[at] = g_get_monotonic_time() - start;
    }
    qsort(times, WRITES, sizeof times[0], Compare);
    printf("%lld\n", (long long)times[WRITES / 2]);
    return 0;
}
