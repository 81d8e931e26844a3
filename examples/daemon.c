/* SPDX-License-Identifier: MIT */
/* A host in C: reads paths from standard input, one a line, and answers each with the path under
   which the running system shows the file; the library's messages go to syslog.
       cc daemon.c $(pkg-config --cflags --libs orvel_core) -o daemon */
#define _POSIX_C_SOURCE 200809L
#include <ctype.h>
#include <orvel_core.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

/* The library finds this function by its name. A message holds what a caller gave as a path, so
   whatever could pass for a line of its own is made harmless. */
void orvel_log_v2(int32_t level, int32_t module, void *reserved1, void *reserved2,
                  const char *function, int32_t line, const char *format, ...) {
    static const int priorities[] = {LOG_DEBUG, LOG_DEBUG, LOG_WARNING, LOG_ERR};
    char text[2 * 4096]; /* the longest path that can be asked, and a reason */
    va_list arguments;
    char *byte;

    (void)module, (void)reserved1, (void)reserved2;
    va_start(arguments, format);
    if (vsnprintf(text, sizeof text, format, arguments) < 0) *text = '\0';
    va_end(arguments);
    for (byte = text; *byte != '\0'; ++byte)
        if (iscntrl((unsigned char)*byte)) *byte = '?';
    syslog(priorities[level & 3], "%s:%d: %s", function, (int)line, text);
}

/* The library refuses a path by NULL, also when it is asked too often. The path that was given is
   then the best one there is. One with a NUL byte inside would reach it as another path. */
static void answer(const char *given, size_t length) {
    char *normalized = strlen(given) == length ? pathNormalize(given) : NULL;

    (void)fwrite(normalized ? normalized : given, 1, normalized ? strlen(normalized) : length,
                 stdout);
    (void)putchar('\n');
    free(normalized);
}

int main(void) {
    char *line = NULL;
    size_t capacity = 0;
    ssize_t length;

    /* To standard error as well, where a system has no syslog. Trace is not for every day. */
    openlog("orvel-daemon", LOG_PID | LOG_PERROR, LOG_DAEMON);
    (void)setlogmask(LOG_UPTO(LOG_WARNING));
    (void)setvbuf(stdout, NULL, _IOLBF, 0); /* whoever asks waits for the answer */
    while (!ferror(stdout) && (length = getline(&line, &capacity, stdin)) > 0) {
        if (line[length - 1] == '\n') line[--length] = '\0';
        answer(line, (size_t)length);
    }
    free(line);
    return ferror(stdout) || !feof(stdin) ? EXIT_FAILURE : EXIT_SUCCESS;
}
