#include "Real.h"

#include <dlfcn.h>

namespace Simulator {

namespace {

template <typename Function>
void Find(Function& function, const char* name) {
  function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

Real FindAll() {
  Real real{};
  Find(real.open, "open");
  Find(real.open64, "open64");
  Find(real.openat, "openat");
  Find(real.openat64, "openat64");
  Find(real.close, "close");
  Find(real.ioctl, "ioctl");
  Find(real.read, "read");
  Find(real.write, "write");
  Find(real.fcntl, "fcntl");
  Find(real.fcntl64, "fcntl64");
  Find(real.dup, "dup");
  Find(real.dup2, "dup2");
  Find(real.dup3, "dup3");
  Find(real.stat, "stat");
  Find(real.stat64, "stat64");
  Find(real.lstat, "lstat");
  Find(real.lstat64, "lstat64");
  Find(real.fstat, "fstat");
  Find(real.fstat64, "fstat64");
  Find(real.fstatat, "fstatat");
  Find(real.fstatat64, "fstatat64");
  Find(real.statx, "statx");
  Find(real.statvfs, "statvfs");
  Find(real.statvfs64, "statvfs64");
  Find(real.fstatvfs, "fstatvfs");
  Find(real.fstatvfs64, "fstatvfs64");
  Find(real.fsync, "fsync");
  Find(real.access, "access");
  Find(real.faccessat, "faccessat");
  Find(real.readlink, "readlink");
  Find(real.readlinkat, "readlinkat");
  Find(real.realpath, "realpath");
  Find(real.opendir, "opendir");
  Find(real.scandir, "scandir");
  Find(real.scandir64, "scandir64");
  Find(real.fopen, "fopen");
  Find(real.fopen64, "fopen64");
  Find(real.mkdir, "mkdir");
  Find(real.rmdir, "rmdir");
  Find(real.unlink, "unlink");
  Find(real.remove, "remove");
  Find(real.rename, "rename");
  Find(real.pread, "pread");
  Find(real.pread64, "pread64");
  Find(real.pwrite, "pwrite");
  Find(real.pwrite64, "pwrite64");
  Find(real.aio_read, "aio_read");
  Find(real.aio_read64, "aio_read64");
  Find(real.aio_write, "aio_write");
  Find(real.aio_write64, "aio_write64");
  Find(real.glob, "glob");
  Find(real.glob64, "glob64");
  Find(real.clock_gettime, "clock_gettime");
  Find(real.nanosleep, "nanosleep");
  Find(real.popen, "popen");
  Find(real.pclose, "pclose");
  Find(real.system, "system");
  return real;
}

}  // namespace

const Real& Libc() {
  static const Real real = FindAll();
  return real;
}

}  // namespace Simulator
