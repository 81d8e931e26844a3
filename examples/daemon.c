/* SPDX-License-Identifier: MIT */
/* A service in C: reads paths from standard input, one a line, and answers each with the path under
   which the running system shows the file. A path that the library refuses gets an empty line, and
   so does one whose answer would hold a newline, as a mount point may. The library's messages go to
   syslog. orvel-daemon.socket and orvel-daemon@.service let systemd start it.
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

/* Writes text into result of size bytes, with control characters as \x0a: a message holds a path,
   and could otherwise pass for two lines. Text that does not fit is cut. */
static void escape(char *result, size_t size, const char *text) {
    size_t used = 0;

    for (; *text != '\0' && used + sizeof "\\x0a" <= size; ++text)
        if (iscntrl((unsigned char)*text))
            used += (size_t)snprintf(result + used, size - used, "\\x%02x", (unsigned char)*text);
        else
            result[used++] = *text;
    result[used] = '\0';
}

/* The library finds this function by its name. Without a configuration each call has the same
   warning, so a message that is equal to the last one is dropped. (last needs a lock in a program
   with threads.) */
void orvel_log_v2(int32_t level, int32_t module, void *reserved1, void *reserved2,
                  const char *function, int32_t line, const char *format, ...) {
    enum { warning = 2 };       /* below it are detail and trace */
    static char last[2 * 4096]; /* the longest path that can be asked, and a reason */
    char text[sizeof last], message[sizeof last];
    va_list arguments;

    (void)module, (void)reserved1, (void)reserved2;
    va_start(arguments, format);
    if (vsnprintf(text, sizeof text, format, arguments) < 0) *text = '\0';
    va_end(arguments);
    escape(message, sizeof message, text);
    if (level < warning || strcmp(message, last) == 0) return;
    (void)strcpy(last, message);
    syslog(level == warning ? LOG_WARNING : LOG_ERR, "%s:%d: %s", function, (int)line, last);
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
    (void)puts(normalized && strchr(normalized, '\n') == NULL ? normalized : "");
    free(normalized);
}

int main(void) {
    char *line = NULL;
    size_t capacity = 0;
    ssize_t length;

    /* To standard error as well, for a system without syslog. */
    openlog("orvel-daemon", LOG_PID | LOG_PERROR, LOG_DAEMON);
    (void)setvbuf(stdout, NULL, _IOLBF, 0); /* the caller waits for the answer */
    while (!ferror(stdout) && (length = getline(&line, &capacity, stdin)) > 0) {
        if (line[length - 1] == '\n') line[--length] = '\0';
        answer(line, (size_t)length);
    }
    free(line);
    return ferror(stdout) || !feof(stdin) ? EXIT_FAILURE : EXIT_SUCCESS;
}
