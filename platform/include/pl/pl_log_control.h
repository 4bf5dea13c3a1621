// Control of the log for hosts and tests; services only write.
#ifndef PL_PL_LOG_CONTROL_H
#define PL_PL_LOG_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

// Receives each line that passes the level, its text already formatted and escaped, without a newline.
typedef void (*pl_log_sink)(void* context, int module, int level, const char* file, int line,
                            const char* text);

// Sends lines to the sink instead of standard error; null brings standard error back. Returns once no
// other thread is inside the old sink.
void pl_log_set_sink(pl_log_sink sink, void* context);

// Lines below the level are dropped from now on.
void pl_log_set_level(int level);

#ifdef __cplusplus
}
#endif

#endif
