/* SPDX-License-Identifier: MIT */
/* liborvel_core: the one path under which the running system shows a file.

   On a system whose root is put together from bind mounts and overlays of one
   block device, a file has several paths. pathNormalize() and
   batchPathNormalize() turn any of them into the path under which the system
   shows the file: below its mount point, or below the merged directory of its
   overlay. Both read the process's mount table and the overlay configuration
   /ostree/pkgs/system-ovl.conf afresh on every call; nothing is cached.

   Strings are NUL-terminated bytes in no particular encoding. No exception
   leaves a function of this header. Messages go to the process's own
   orvel_log_v2(), which is declared below. */
#ifndef ORVEL_CORE_H
#define ORVEL_CORE_H

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Not a function of the library: a process that defines it gets the messages,
   one without it gets none. level is 0 detail, 1 trace, 2 warning or 3 error;
   module is always 3, the pointers are always null; function and line say where
   in the library, and format is as printf(3) has it. Called by any thread that
   is in the library. In C++ it has C linkage and, where it sees this header, no
   noexcept. */
#ifdef __GNUC__
__attribute__((format(printf, 7, 8)))
#endif
void orvel_log_v2(int32_t level, int32_t module, void *, void *,
                  const char *function, int32_t line, const char *format, ...);

/* The normalised form of path, or NULL with errno set and one line in the log
   that says why. On NULL, use the original path; a security check should refuse
   it instead.

   path has 1 to 4095 bytes and no component "." or "..". A relative path, a
   lone "." among them, and "/" come back unchanged, without a look at the
   system. Symbolic links, doubled and trailing slashes in path are left as
   they are, and the file need not exist.

   "/tmproot" at the beginning, as plain text, is read as "/sysroot"; then at
   most one mapping is applied; then "/var/tmp/", "/var/opt/", "/var/srv/" and
   "/var/mnt/" lose their "/var". This last rule gives the same file only where
   /tmp, /opt, /srv and /mnt are links to those directories: with a tmpfs at
   /tmp, /var/tmp/x is given as /tmp/x, another file.

   Every call takes one token of a bucket that batchPathNormalize() shares:
   100 tokens at most, refilled by one every 10 milliseconds. With the bucket
   empty the call is refused.

   errno after NULL, of this function and of batchPathNormalize():
     EAGAIN        the bucket is empty: wait 10 milliseconds
     EINVAL        a path is NULL, empty or has dot components; no array, count 0
     E2BIG         count is more than 1000
     ENAMETOOLONG  a path or a result is too long
     EILSEQ        a result holds a NUL byte, from the configuration file
     ENOMEM        memory ran out
     EIO           all else, such as a log function that throws

   The result is at most 4096 bytes and its NUL, one byte more than PATH_MAX,
   malloc'ed and belongs to the caller, who releases it with free().

   May be called from any number of threads, on a stack of 16 KiB (x86-64;
   glibc's PTHREAD_STACK_MIN) if the log function needs little; a (deferred)
   cancellation of the thread waits until the call is over. The log function
   must return or throw; it must not call pthread_exit(). */
char *pathNormalize(const char *path);

/* What batchPathNormalize() gives: count strings, paths[i] being the
   normalised form of input path i. None of them is NULL or empty. */
typedef struct {
    char **paths;
    size_t count;
} path_normalize_result_t;

/* The normalised forms of count paths (1 to 1000), or NULL with errno set as by
   pathNormalize() and one line in the log. The batch fails as a whole if one
   path is NULL, would be refused by pathNormalize(), or fails.

   The mount table and the configuration are read once for the whole batch,
   and the batch takes one token of the bucket, whatever its size.

   The record belongs to the caller, who releases it with
   freeBatchPathNormalize(). Threads as for pathNormalize(). */
path_normalize_result_t *batchPathNormalize(const char *const *paths, size_t count);

/* Releases a record with everything it holds. NULL, a record whose paths is
   NULL, and NULL entries are fine. Each record is released once. */
void freeBatchPathNormalize(path_normalize_result_t *result);

/* --- Strings and time -------------------------------------------------------
   Any number of threads may call the functions from here on, get_time_str()
   excepted. None of them writes a log line. A (deferred) cancellation of the
   thread waits until the call is over. Call them with at least 64 KiB of stack:
   32 KiB is what the neediest took on x86-64 with glibc 2.36. A string that one
   returns is malloc'ed and belongs to the caller, who releases it with free().

   A success leaves errno alone. A failure or refusal sets it: EINVAL for NULL
   and for "..", ELOOP for a symbolic link that is refused, ENOENT for an empty
   path, else what the failing system call reported. */

/* Removes every blank and tab from str, wherever it stands, in place. The
   result is the length that str had, counted up to 2048; 0 for NULL. */
size_t ltrim_anyway(char *str);

/* str with every occurrence of pattern replaced, from left to right; what was
   put in is not searched again. A NULL replacement removes them. Of each
   argument the first 2048 bytes count; the result may be longer. NULL if str
   or pattern is NULL or empty, or without memory. */
char *strrpc(const char *str, const char *pattern, const char *replacement);

/* Fills in the local time; leaves *out alone where there is no time, and does
   nothing for NULL. */
void get_current_time(struct tm *out);

/* The local time as "2024-01-31 23:59:59", or NULL. Sets the locale of the whole
   process from the environment on each call, so no other thread may be using
   the locale meanwhile. */
char *get_time_str(void);

/* --- Paths -------------------------------------------------------------------
   A symbolic link at the end of a path is looked at itself, not followed; one
   with a slash behind it, "link/", is followed. */

/* The absolute path of file, links resolved, except that a link at its end
   keeps its name: only its directory is resolved. NULL if file is NULL, does
   not exist, cannot be resolved or would exceed 4095 bytes, and for "/". */
char *get_absolute_path(const char *file);

/* 1 if path exists (a dangling link does), else -1. */
int path_is_exist(const char *path);

/* 1 if path is a directory, or a symbolic link, respectively; else 0. */
int path_is_dir(const char *path);
int path_is_link(const char *path);

/* 1 if both are the same file by device and inode, 0 if not, -1 if either
   cannot be examined. */
int path_is_same(const char *path1, const char *path2);

/* 1 if both are mount points of one source and type, as a file system and its
   bind mounts are; 0 if not; -1 if either is NULL or empty, /proc/mounts cannot
   be read or memory runs out. Compared as written: "/mnt/" is no mount point. */
int path_is_mount_bind(const char *path1, const char *path2);

/* --- Listings ----------------------------------------------------------------
   The result is an array of *count paths, in the order in which the system
   gives the entries. Array and strings are malloc'ed and belong to the caller,
   who frees each string, then the array. *count must be 0 before the call;
   NULL without a look at the directory if it is not, or count is NULL.

   Links inside dir are listed and never followed, even if a directory is
   replaced by a link during the call; mount points are entered. A directory that
   cannot be opened is skipped, and so is an entry whose path would exceed 4096
   bytes. If memory or descriptors run out the result is NULL, not a part; 4 free
   descriptors are enough. An empty list is NULL, too, and leaves errno alone. */

/* Everything below dir but directories, under the path that the kernel has for
   dir. A directory with ".." in its path, also inside a name, is passed over.
   NULL with *count 0 if there is nothing, memory runs out, or dir is NULL,
   contains "..", or is no directory itself (a link to one is not), and without
   a mounted /proc. */
char **get_file_list_from_dir(const char *dir, int *count);

/* Everything below dir, each directory after what it holds, and dir itself last;
   removing in this order removes a tree. A directory inside dir appears twice
   in a row if it could be opened, else once. dir may contain ".." and may be a
   link: then dir and its direct entries are listed under the link's path, deeper
   entries under the canonical path. The root, as "//" or "/.", ends with "/";
   "/" itself is NULL, as for get_absolute_path(). NULL on failure, *count then
   without meaning. */
char **get_path_list_from_dir(const char *dir, int *count);

/* What stands directly in dir, of every type; dir as above. NULL if there is
   nothing or on failure, *count then without meaning if memory ran out. */
char **get_dir_list(const char *dir, int *count);

/* --- Removing and copying ----------------------------------------------------
   Below their arguments these functions name everything relative to open
   directories and follow no link, so a concurrent change cannot lead them out of
   the tree. Depth and width are not limited by the stack; some 25 descriptors at
   most are open at a time, 4 free ones are enough to remove and 6 to copy. A path
   is refused if it is NULL, has ".." anywhere, also inside a name, or is a
   symbolic link. Inside a tree such names are skipped silently. Messages are
   written to standard error with perror(). An entry that readdir(3) reports as a
   regular file is examined only if it cannot be removed. */

/* Removes a file or a tree. 0 when done, also if path does not exist; -1 if path
   is refused; -2 with "get directory stat error" or "opendir error" if it
   cannot be examined or opened.

   0 does not say that all is gone: links, names with "..", special files
   ("unknow file type!") and whatever cannot be removed stay, with the
   directories above them. File systems mounted inside the tree are entered and
   emptied. "link/", with the slash, is the directory that the link names. */
int remove_dir(const char *path);

/* Copies the bytes of a regular file to dst, which is created with default
   permissions or emptied first: src and dst must be different files. The
   caller must be allowed to write src, too. 0 after copying, even if the disk
   was full or reading failed; -1 if either is refused or cannot be opened, or
   src is no regular file. */
int copy_file(const char *src, const char *dst);

/* Copies the tree src as a new directory, with the permissions of src less the
   umask, into the directory dst, which may be a link to one. Files are copied
   as by copy_file(), neither holes nor permissions kept; a link to a directory
   leaves an empty directory, other links are left out; special files are left
   out with "unknow file type!". Left out without a word are files that the
   caller may not write, paths longer than 4095 bytes and, where src is copied
   into itself, the copy.

   0 after copying, whatever failed inside; -1 if an argument is NULL, src has
   no "/", the new path is too long, or it or src is refused (with src refused,
   also as "link/", the new directory stays); -2 if src or dst does not exist, or
   either directory cannot be opened or memory runs out ("opendir error"; the
   new one stays); -3 if src cannot be examined; -4 if the new directory cannot
   be made, as when it exists. */
int copy_dir(const char *src, const char *dst);

#ifdef __cplusplus
}
#endif

#endif
