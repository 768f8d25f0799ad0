// A seccomp filter that takes O_TMPFILE away, as file systems without
// unnamed files do, so that tests and benchmarks reach the named fallback.
#pragma once

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

/// "what: the errno's text".
inline std::string failed(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

/// Makes open() and openat() with O_TMPFILE fail with EOPNOTSUPP in this
/// process, as on a file system without unnamed files. Irreversible: call it
/// in a child. "" or why it is unavailable.
inline std::string refuseUnnamedFiles() {
#if defined(__x86_64__)
  constexpr std::uint32_t kArch = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
  constexpr std::uint32_t kArch = AUDIT_ARCH_AARCH64;
#else
  return "no seccomp filter for this architecture";
#endif
  constexpr std::uint32_t kUnnamedBit = 020000000;  // __O_TMPFILE, without the O_DIRECTORY that O_TMPFILE adds
#ifdef __NR_open
  constexpr std::uint32_t kOpen = __NR_open;
#else
  constexpr std::uint32_t kOpen = 0xFFFFFFFF;  // no such call
#endif
  // The flags' low 32 bits: openat's third argument, open's second.
  constexpr std::uint32_t kArg1 = offsetof(seccomp_data, args) + 8, kArg2 = offsetof(seccomp_data, args) + 16;
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArch, 0, 7),  // other architecture: allow
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_openat, 0, 2),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kArg2),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, kUnnamedBit, 4, 3),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kOpen, 0, 2),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kArg1),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, kUnnamedBit, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | (EOPNOTSUPP & SECCOMP_RET_DATA)),
  };
  sock_fprog filter{static_cast<unsigned short>(sizeof program / sizeof program[0]), program};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return failed("no_new_privs");
  if (::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) return failed("seccomp");
  return "";
}

