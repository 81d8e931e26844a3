/* SPDX-License-Identifier: MIT */
/* The public header from plain C, in a program that has no log function: every symbol is bound at
 * once, or when it is first called. */
#include <assert.h>
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include "orvel_core.h"

int main(int argc, char **argv) {
    int mode;

    for (mode = RTLD_LAZY; mode <= RTLD_NOW; ++mode) {
        void *library = dlopen(argv[argc - 1], mode);
        char *(*normalize)(const char *);
        char *path;

        assert(library != NULL);
        *(void **)&normalize = dlsym(library, "pathNormalize");
        path = normalize("/var/tmp/x");
        assert(strcmp(path, "/tmp/x") == 0);
        free(path);
        assert(dlclose(library) == 0);
    }
    return 0;
}
