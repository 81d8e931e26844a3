/* SPDX-License-Identifier: MIT */
/* liborvel_core: the one path under which the running system shows a file.

   pathNormalize() and batchPathNormalize() read the process's mount table and
   the overlay configuration /ostree/pkgs/system-ovl.conf afresh on every call.
   orvel_core(3) explains the rules, orvel_caveats(7) the limits that a program
   must know if it decides by the result.

   Strings are NUL-terminated bytes in any encoding. Strings, arrays and records
   that a function returns are malloc'ed and belong to the caller. No exception
   leaves a function of this header. All functions but get_time_str() are
   thread-safe; a deferred cancellation of the thread waits until they return. */
#ifndef ORVEL_CORE_H
#define ORVEL_CORE_H

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Not a function of the library: a program that defines it gets the library's
   messages, on the thread that called the library. level is 0 detail, 1 trace,
   2 warning or 3 error; module is 3 and the pointers are null; function and line
   are a place in the library; format and the rest are those of printf(3). It must
   return or throw; it must not call pthread_exit(). */
#ifdef __GNUC__
__attribute__((format(printf, 7, 8)))
#endif
void orvel_log_v2(int32_t level, int32_t module, void *, void *,
                  const char *function, int32_t line, const char *format, ...);

/* --- Normalising ------------------------------------------------------------- */

/* The longest path, without its NUL, and the largest batch. */
#define ORVEL_MAX_PATH_BYTES 4095
#define ORVEL_MAX_BATCH_PATHS 1000

/* The normalised form of path, or NULL with errno set and one line in the log.
   If a program decides by the result, it must deny what it cannot normalise.

   path has 1 to ORVEL_MAX_PATH_BYTES bytes and no component "." or ".."; the
   file may be missing. A relative path (also "." alone) and "/" come back
   unchanged. The result has at most 4096 bytes and its NUL; the caller releases
   it with free().

   Bursts of up to 100 calls are admitted, then 100 calls a second, for this
   function and batchPathNormalize() together.

   errno after NULL, of both functions:
     EAGAIN        too many calls: wait 10 milliseconds
     EINVAL        a path is NULL, empty or has a component "." or "..";
                   paths is NULL, or count is 0
     E2BIG         count is more than ORVEL_MAX_BATCH_PATHS
     ENAMETOOLONG  a path or a result is too long
     EILSEQ        a result contains a NUL byte from the configuration file
     ENOMEM        out of memory
     EIO           another failure, such as a log function that throws

   Both functions need a stack of 16 KiB (x86-64) if the log function needs
   little. */
char *pathNormalize(const char *path);

/* paths[i] is the normalised form of input path i, never NULL or empty. */
typedef struct {
    char **paths;
    size_t count;
} path_normalize_result_t;

/* The normalised forms of 1 to ORVEL_MAX_BATCH_PATHS paths. Reads the mount table
   and the configuration once and counts as one call. NULL, as from
   pathNormalize(), if one of the paths is refused. The caller releases the record
   with freeBatchPathNormalize(). */
path_normalize_result_t *batchPathNormalize(const char *const *paths, size_t count);

/* Releases a record and everything that it holds, once. result, result->paths
   and single entries may be NULL. */
void freeBatchPathNormalize(path_normalize_result_t *result);

/* --- Strings and time ----------------------------------------------------------
   From here on, no function writes a log line. The caller releases a string with
   free(). A success keeps errno; a failure sets it: EINVAL for NULL and for "..",
   ELOOP for a symbolic link that is refused, ENOENT for an empty path, else the
   error of the system call that failed. The functions need 64 KiB of stack. */

/* Removes every blank and tab from str, in place. Returns the length that str
   had, at most 2048; 0 for NULL. */
size_t ltrim_anyway(char *str);

/* str with every occurrence of pattern replaced, from left to right; NULL as
   replacement removes them. Only the first 2048 bytes of each argument are read.
   NULL if str or pattern is NULL or empty, or memory ran out. */
char *strrpc(const char *str, const char *pattern, const char *replacement);

/* Stores the local time; nothing if there is none or out is NULL. */
void get_current_time(struct tm *out);

/* The local time as "2024-01-31 23:59:59", or NULL. Sets the locale of the
   process from the environment, so no other thread may use the locale. */
char *get_time_str(void);

/* --- Paths ---------------------------------------------------------------------
   A symbolic link at the end of a path is examined itself; "link/", with a slash,
   is followed. */

/* The absolute path of file. Links in it are resolved, but a link at its end
   keeps its name. NULL for NULL and "/", or if file cannot be resolved or the
   result has more than 4095 bytes. */
char *get_absolute_path(const char *file);

/* 1 if path exists, also as a dangling link; else -1. */
int path_is_exist(const char *path);

/* 1 if path is a directory; else 0. */
int path_is_dir(const char *path);

/* 1 if path is a symbolic link; else 0. */
int path_is_link(const char *path);

/* 1 if both are one file by device and inode; 0 if not; -1 if either cannot be
   examined. */
int path_is_same(const char *path1, const char *path2);

/* 1 if both are mount points of one source and type, as a file system and its
   bind mounts are; 0 if not; -1 if either is NULL or empty, or /proc/mounts
   cannot be read. Compares text: "/mnt/" does not match a mount at "/mnt". */
int path_is_mount_bind(const char *path1, const char *path2);

/* --- Listings ------------------------------------------------------------------
   An array of *count paths. The caller releases each string, then the array,
   with free(). *count must be 0 before the call. Links below dir are listed and
   never followed; mount points are entered; what cannot be opened is skipped.
   NULL is a failure or an empty list, which keeps errno; get_dir_list(3) says
   what *count is then. */

/* All files below dir, without directories, under the path that the kernel has
   for dir. dir must not be a link or contain "..". Needs a mounted /proc. */
char **get_file_list_from_dir(const char *dir, int *count);

/* Everything below dir, each directory after its entries, and dir last. dir may
   be a link and contain "..". A directory below dir is listed twice in a row. */
char **get_path_list_from_dir(const char *dir, int *count);

/* The entries of dir, of every type. dir may be a link and contain "..". */
char **get_dir_list(const char *dir, int *count);

/* --- Removing and copying ------------------------------------------------------
   A path is refused if it is NULL, contains ".." anywhere, also inside a name, or
   is a symbolic link. Inside a tree such names are skipped. No concurrent change
   leads these functions out of a tree. Messages go to standard error by perror().
   remove_dir(3) says what remains and what is left out. */

/* Removes a file or a tree.
     0   done (something may remain), or path does not exist
     -1  path is refused
     -2  path cannot be examined or opened */
int remove_dir(const char *path);

/* Copies the bytes of a regular file to dst, which is created or emptied first.
     0   copied; only in part if the disk was full or reading failed
     -1  either is refused or cannot be opened (src for writing, too), both are one
         file, or src is not a regular file */
int copy_file(const char *src, const char *dst);

/* Copies the tree src as a new directory into the directory dst, which may be a
   link. Files are copied as by copy_file().
     0   done (files may be missing)
     -1  an argument is NULL, src has no "/", the new path is too long, or it or
         src is refused
     -2  src or dst does not exist, a directory cannot be opened, or memory ran out
     -3  src cannot be examined
     -4  the new directory cannot be made, for example because it exists
   The new directory remains after -1 if src is refused, and after -2 if a
   directory cannot be opened or memory ran out. */
int copy_dir(const char *src, const char *dst);

#ifdef __cplusplus
}
#endif

#endif
