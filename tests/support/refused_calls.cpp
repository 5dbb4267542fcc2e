#include "tests/support/refused_calls.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace tervano::test {

void refuseCalls(const std::vector<RefusedCall>& calls) {
  using Having = RefusedCall::Having;
  const auto load = [](std::size_t offset) {
    return sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(offset));
  };
  std::vector<sock_filter> program;
  for (const RefusedCall& call : calls) {
    const bool any = call.having == Having::anything;
    program.push_back(load(offsetof(seccomp_data, nr)));
    // Past what follows when it is another call.
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call.number), 0,
                               static_cast<unsigned char>(any ? 1 : 3)));
    if (!any) {
      const unsigned test = call.having == Having::aBit ? BPF_JSET : BPF_JEQ;
      program.push_back(load(offsetof(seccomp_data, args) +
                             static_cast<std::size_t>(call.argument) * sizeof(std::uint64_t)));
      program.push_back(
          BPF_JUMP(static_cast<unsigned short>(BPF_JMP | test | BPF_K), call.value, 0, 1));
    }
    program.push_back(
        BPF_STMT(BPF_RET | BPF_K,
                 static_cast<unsigned>(SECCOMP_RET_ERRNO | (static_cast<unsigned>(call.code)))));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter, 0, 0) != 0) {
    _exit(98);
  }
}

}  // namespace tervano::test
