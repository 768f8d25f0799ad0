// A deterministic INI text for benchmarks: sections of 8 to 20 options with
// "#" comments, blank lines and continuation lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

inline std::string makeIniCorpus(std::size_t targetBytes, std::uint32_t seed = 20261123) {
  std::uint64_t state = seed;
  auto next = [&state](std::uint32_t bound) {
    state = state * 6364136223846793005ull + 1442695040888963407ull;
    return static_cast<std::uint32_t>((state >> 33) % bound);
  };
  static const char* const kWords[] = {"alpha", "beta", "gamma", "delta", "path", "level", "enabled", "timeout",
                                       "server", "cache", "user", "mode", "limit", "color", "font", "size"};
  auto word = [&] { return std::string(kWords[next(16)]); };
  std::string text;
  text.reserve(targetBytes + 4096);
  text += "# generated configuration\n\n";
  for (std::size_t section = 0; text.size() < targetBytes; ++section) {
    // Appended piece by piece: GCC 12 at -O3 misreads a string literal
    // prepended to a temporary string as an overlapping copy (-Wrestrict).
    text += '[';
    text += word() + "_" + std::to_string(section) + "]\n";
    std::uint32_t options = 8 + next(13);
    for (std::uint32_t i = 0; i < options; ++i) {
      switch (next(10)) {
        case 0:
          text += "# ";
          text += word() + " " + word() + " " + word() + "\n";
          break;
        case 1:
          text += "\n";
          break;
        default:
          break;
      }
      text += word() + "_" + std::to_string(i) + (next(3) == 0 ? " = " : "=") + word() + "/" + word() + "/" +
              std::to_string(next(100000)) + "\n";
      if (next(12) == 0) {
        text += "    ";
        text += word() + " " + word() + "\n";
      }
    }
    text += "\n";
  }
  return text;
}
