// The platform's log: one line per call on standard error. Any thread.
#ifndef PL_PL_LOG_H
#define PL_PL_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define PL_LOG_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define PL_LOG_PRINTF(text, first)
#endif

// Levels: 0 per-request tracing, 1 information, 3 errors. A line below PL_LOG_LEVEL (an environment
// variable, default 1) is dropped before it is formatted. The two zero arguments are reserved.
void PL_WriteLog(int module, int level, int reserved1, int reserved2, const char* file, int line,
                 const char* format, ...) PL_LOG_PRINTF(7, 8);

#ifdef __cplusplus
}
#endif

#endif
