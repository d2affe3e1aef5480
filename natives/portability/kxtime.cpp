#include <dlfcn.h>
#include <unistd.h>

#include "kxos.h"

extern "C" {

int kx_gettimeofday(struct timeval* now) { return gettimeofday(now, nullptr) == 0 ? 0 : -1; }
unsigned kx_sleep(unsigned seconds) { return sleep(seconds); }
time_t kx_time(time_t* now) { return time(now); }
char* kx_ctime(const time_t* when) { return ctime(when); }
struct tm* kx_localtime(const time_t* when) {
  return localtime(when);
}
struct tm* kx_gmtime(const time_t* when) {
  return gmtime(when);
}
time_t kx_mktime(struct tm* brokenDown) {
  // mktime reads local time and sets timezone (seconds west of UTC) as it does; taking the
  // offset back out reads the fields as UTC. A daylight-saving shift is not undone.
  const time_t local = mktime(brokenDown);
  return local - timezone;
}

void* kx_dlopen(const char* fileName) { return dlopen(fileName, RTLD_LAZY); }
void* kx_dlsym(void* handle, const char* symbol) { return dlsym(handle, symbol); }
int kx_dlclose(void* handle) { return dlclose(handle); }
char* kx_dlerror(void) { return dlerror(); }
}
