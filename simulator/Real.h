// The system's own functions, below the ones that the simulator puts before
// them. All of the simulator's files are reached through these.
#pragma once

#include <dirent.h>
#include <glob.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <cstdio>

struct aiocb;
struct aiocb64;
struct statvfs;
struct statvfs64;
struct statx;

namespace Simulator {

struct Real {
  int (*open)(const char*, int, ...);
  int (*open64)(const char*, int, ...);
  int (*openat)(int, const char*, int, ...);
  int (*openat64)(int, const char*, int, ...);
  int (*close)(int);
  int (*ioctl)(int, unsigned long, ...);
  ssize_t (*read)(int, void*, size_t);
  ssize_t (*write)(int, const void*, size_t);
  int (*fcntl)(int, int, ...);
  int (*fcntl64)(int, int, ...);
  int (*dup)(int);
  int (*dup2)(int, int);
  int (*dup3)(int, int, int);
  int (*stat)(const char*, struct stat*);
  int (*stat64)(const char*, struct stat64*);
  int (*lstat)(const char*, struct stat*);
  int (*lstat64)(const char*, struct stat64*);
  int (*fstat)(int, struct stat*);
  int (*fstat64)(int, struct stat64*);
  int (*fstatat)(int, const char*, struct stat*, int);
  int (*fstatat64)(int, const char*, struct stat64*, int);
  int (*statx)(int, const char*, int, unsigned, struct statx*);
  int (*statvfs)(const char*, struct statvfs*);
  int (*statvfs64)(const char*, struct statvfs64*);
  int (*fstatvfs)(int, struct statvfs*);
  int (*fstatvfs64)(int, struct statvfs64*);
  int (*fsync)(int);
  int (*access)(const char*, int);
  int (*faccessat)(int, const char*, int, int);
  ssize_t (*readlink)(const char*, char*, size_t);
  ssize_t (*readlinkat)(int, const char*, char*, size_t);
  char* (*realpath)(const char*, char*);
  DIR* (*opendir)(const char*);
  int (*scandir)(const char*, struct dirent***, int (*)(const struct dirent*),
                 int (*)(const struct dirent**, const struct dirent**));
  int (*scandir64)(const char*, struct dirent64***, int (*)(const struct dirent64*),
                   int (*)(const struct dirent64**, const struct dirent64**));
  FILE* (*fopen)(const char*, const char*);
  FILE* (*fopen64)(const char*, const char*);
  int (*mkdir)(const char*, mode_t);
  int (*rmdir)(const char*);
  int (*unlink)(const char*);
  int (*remove)(const char*);
  int (*rename)(const char*, const char*);
  ssize_t (*pread)(int, void*, size_t, off_t);
  ssize_t (*pread64)(int, void*, size_t, off64_t);
  ssize_t (*pwrite)(int, const void*, size_t, off_t);
  ssize_t (*pwrite64)(int, const void*, size_t, off64_t);
  int (*aio_read)(struct aiocb*);
  int (*aio_read64)(struct aiocb64*);
  int (*aio_write)(struct aiocb*);
  int (*aio_write64)(struct aiocb64*);
  int (*glob)(const char*, int, int (*)(const char*, int), glob_t*);
  int (*glob64)(const char*, int, int (*)(const char*, int), glob64_t*);
  int (*clock_gettime)(clockid_t, struct timespec*);
  int (*nanosleep)(const struct timespec*, struct timespec*);
  FILE* (*popen)(const char*, const char*);
  int (*pclose)(FILE*);
  int (*system)(const char*);
};

const Real& Libc();

}  // namespace Simulator
