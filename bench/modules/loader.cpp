// Loads one module and calls its entry, as a file manager does, and prints what that took: the
// nanoseconds of processor time in all threads, those on the clock, and the growth of the resident
// memory in KiB.
//   bench_module_loader MODULE bare|with-gio
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

long long nanoseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

long residentKibibytes() {
  long total = 0;
  long resident = 0;
  std::FILE* const file = std::fopen("/proc/self/statm", "r");
  const bool read = file != nullptr && std::fscanf(file, "%ld %ld", &total, &resident) == 2;
  if (file != nullptr) std::fclose(file);
  return read ? resident * (sysconf(_SC_PAGESIZE) / 1024) : 0;
}

int fail() {
  std::fprintf(stderr, "bench_module_loader: %s\n", dlerror());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  if (std::strcmp(argv[2], "with-gio") == 0) {
    void* const gio = dlopen("libgio-2.0.so.0", RTLD_NOW | RTLD_GLOBAL);
    if (gio == nullptr) return fail();
    const auto ensure = reinterpret_cast<void* (*)()>(dlsym(gio, "g_vfs_get_default"));
    if (ensure == nullptr) return fail();
    ensure();
  }
  const long before = residentKibibytes();
  const auto begin = nanoseconds(CLOCK_MONOTONIC);
  const auto beginOfWork = nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
  void* const module = dlopen(argv[1], RTLD_LAZY | RTLD_LOCAL);
  if (module == nullptr) return fail();
  const auto entry = reinterpret_cast<void (*)()>(dlsym(module, "bench_module_initialize"));
  if (entry == nullptr) return fail();
  entry();
  const auto endOfWork = nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
  const auto end = nanoseconds(CLOCK_MONOTONIC);
  std::printf("%lld %lld %ld\n", endOfWork - beginOfWork, end - begin,
              residentKibibytes() - before);
  std::fflush(stdout);
  // The extension's threads and services are never destroyed.
  _exit(0);
}
