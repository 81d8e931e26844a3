/* SPDX-License-Identifier: MIT */
/* A service in C: reads paths from standard input, one a line, and answers each with the path under
   which the running system shows the file. A path that the library refuses gets an empty line. The
   library's messages go to syslog.
       cc daemon.c $(pkg-config --cflags --libs orvel_core) -o daemon */
#define _POSIX_C_SOURCE 200809L
#include <ctype.h>
#include <errno.h>
#include <orvel_core.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <time.h>

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

/* Waits for a token if this program has asked too often. A program that decides by path must not
   go on with a path that the library has refused. A path with a NUL byte inside would reach the
   library as another path. */
static void answer(const char *given, size_t length) {
    const struct timespec one_token = {0, 10000000};
    char *normalized = NULL;

    while (strlen(given) == length && (normalized = pathNormalize(given)) == NULL &&
           errno == EAGAIN)
        (void)nanosleep(&one_token, NULL);
    (void)puts(normalized ? normalized : "");
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
