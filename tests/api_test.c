/* SPDX-License-Identifier: MIT */
/* The public header from plain C, in a program that has no log function and binds every symbol at
 * once. */
#include <assert.h>
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include "orvel_core.h"

int main(int argc, char **argv) {
    void *library = dlopen(argv[argc - 1], RTLD_NOW | RTLD_LOCAL);
    char *(*normalize)(const char *);
    char *path;

    assert(library != NULL);
    *(void **)&normalize = dlsym(library, "pathNormalize");
    path = normalize("/var/tmp/x");
    assert(strcmp(path, "/tmp/x") == 0);
    free(path);
    return dlclose(library);
}
