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
    path_normalize_result_t *(*normalize_batch)(const char *const *, size_t);
    void (*free_batch)(path_normalize_result_t *);
    const char *const paths[] = {"/tmproot/usr", "/var/tmp/x"};
    path_normalize_result_t *batch;
    char *path;

    assert(library != NULL);
    *(void **)&normalize = dlsym(library, "pathNormalize");
    *(void **)&normalize_batch = dlsym(library, "batchPathNormalize");
    *(void **)&free_batch = dlsym(library, "freeBatchPathNormalize");

    path = normalize("/var/tmp/x");
    assert(strcmp(path, "/tmp/x") == 0);
    free(path);
    batch = normalize_batch(paths, 2);
    assert(batch->count == 2 && strcmp(batch->paths[0], "/sysroot/usr") == 0);
    free_batch(batch);
    return dlclose(library);
}
