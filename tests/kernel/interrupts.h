/* Signals with SA_RESTART to this process, as job control and timers send them. */
#pragma once

#include <signal.h>
#include <stddef.h>
#include <sys/time.h>

static void note_signal(int number) { (void)number; }

/* The first after half a second; the next ones, when `again` is not 0, in the same distance. */
static inline int interrupt_process(int again) {
  struct sigaction action = {.sa_handler = note_signal, .sa_flags = SA_RESTART};
  struct itimerval timer = {.it_value = {.tv_usec = 500000}};
  if (again) timer.it_interval = timer.it_value;
  return sigaction(SIGALRM, &action, NULL) | setitimer(ITIMER_REAL, &timer, NULL);
}
