/* What the library costs a process to start: dlopen of the library named by argv[1] (symbols bound
 * at once, as -fno-plt binds them anyway), then p4_pd_corvin_switch_init(). Prints the two times
 * in microseconds: "<dlopen> <init>". Built by tools/cost.sh for each ABI and linked against the
 * driver model and the member-selector layer, so that only the library itself is loaded here. */
#define _POSIX_C_SOURCE 200809L
#include <dlfcn.h>
#include <stdio.h>
#include <time.h>

static double now_us(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec * 1e6 + (double)t.tv_nsec / 1e3;
}

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s <library>\n", argv[0]);
    return 2;
  }
  double t0 = now_us();
  void *lib = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (!lib) {
    fprintf(stderr, "dlopen: %s\n", dlerror());
    return 1;
  }
  double t1 = now_us();
  void (*init)(void);
  *(void **)&init = dlsym(lib, "p4_pd_corvin_switch_init");
  if (!init) {
    fprintf(stderr, "dlsym: %s\n", dlerror());
    return 1;
  }
  init();
  double t2 = now_us();
  printf("%.1f %.1f\n", t1 - t0, t2 - t1);
  return 0;
}
