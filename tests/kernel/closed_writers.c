/* Runs a program and prints the nodes of /dev that were closed meanwhile behind an open for
 * writing: udev reads such a disk anew, and its partitions go and come.
 *
 *   closed_writers PROGRAM [ARGUMENT...]
 */
#include <stdio.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
  /* Room for all that a listing could set off. */
  char events[1 << 16] __attribute__((aligned(__alignof__(struct inotify_event))));
  int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC), status = 0;
  ssize_t size;
  pid_t child;

  if (argc < 2 || inotify_add_watch(watch, "/dev", IN_CLOSE_WRITE) < 0) return 2;
  child = fork();
  if (child == 0) {
    execv(argv[1], argv + 1);
    _exit(127);
  }
  if (child < 0 || waitpid(child, &status, 0) != child) return 2;
  while ((size = read(watch, events, sizeof events)) > 0) {
    const char* at = events;
    while (at < events + size) {
      const struct inotify_event* event = (const void*)at;
      if (event->mask & IN_Q_OVERFLOW) return 2;
      if (event->len > 0) printf("/dev/%s\n", event->name);
      at += sizeof *event + event->len;
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 2;
}
