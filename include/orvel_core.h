/* liborvel_core: the one path under which the running system shows a file.

   On a system whose root is put together from bind mounts and overlays of one
   block device, a file has several paths. pathNormalize() and
   batchPathNormalize() turn any of them into the path under which the system
   shows the file: below its mount point, or below the merged directory of its
   overlay. Both read the process's mount table and the overlay configuration
   /ostree/pkgs/system-ovl.conf afresh on every call; nothing is cached.

   Strings are NUL-terminated bytes in no particular encoding. No exception
   leaves a function of this header. Messages go to the process's own
       void orvel_log_v2(int32_t level, int32_t module, void *, void *,
                         const char *function, int32_t line,
                         const char *format, ...);
   (level 0 detail, 1 trace, 2 warning, 3 error; module always 3; the pointers
   always null). A process without that function gets no messages. */
#ifndef ORVEL_CORE_H
#define ORVEL_CORE_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The normalised form of path, or NULL; the log says why it is NULL, in
   exactly one line. A caller that gets NULL goes on with the path it has.

   path has 1 to 4095 bytes and no component "." or "..". A relative path, a
   lone "." among them, and "/" come back unchanged, without a look at the
   system. Symbolic links, doubled and trailing slashes in path are left as
   they are, and the file need not exist.

   Every call takes one token of a bucket that batchPathNormalize() shares:
   100 tokens at most, refilled by one every 10 milliseconds. With the bucket
   empty the call is refused.

   The result is at most 4096 bytes long, malloc'ed and belongs to the caller,
   who releases it with free(). One that would be longer, or would hold a NUL
   from the configuration, is refused. May be called from any number of
   threads; a (deferred) cancellation of the thread waits until the call is
   over. The log function must return or throw, not end the thread. */
char *pathNormalize(const char *path);

/* What batchPathNormalize() gives: count strings, paths[i] being the
   normalised form of input path i. None of them is NULL or empty. */
typedef struct {
    char **paths;
    size_t count;
} path_normalize_result_t;

/* The normalised forms of count paths (1 to 1000), or NULL; the log says why,
   in exactly one line. All or nothing: one path that pathNormalize() would
   refuse, a NULL among them, or one failure refuses the whole batch.

   The mount table and the configuration are read once for the whole batch,
   and the batch takes one token of the bucket, whatever its size.

   The record belongs to the caller, who releases it with
   freeBatchPathNormalize(). Threads as for pathNormalize(). */
path_normalize_result_t *batchPathNormalize(const char *const *paths, size_t count);

/* Releases a record with everything it holds. NULL, a record whose paths is
   NULL, and NULL entries are fine. Each record is released once. */
void freeBatchPathNormalize(path_normalize_result_t *result);

#ifdef __cplusplus
}
#endif

#endif
