#pragma once

#include <cstddef>
#include <ostream>
#include <string_view>

namespace kov::common::types::utils {

/// A NUL-terminated text of N characters fixed at compile time.
template <std::size_t N>
struct CompileTimeConstantString {
  constexpr const char* c_str() const { return data_; }
  constexpr std::size_t size() const { return N; }
  constexpr std::string_view view() const { return std::string_view(data_, N); }
  constexpr operator std::string_view() const { return view(); }

  char data_[N + 1]{};
};

template <std::size_t N>
std::ostream& operator<<(std::ostream& stream, const CompileTimeConstantString<N>& text) {
  return stream.write(text.c_str(), static_cast<std::streamsize>(N));
}

namespace detail {

template <typename T>
constexpr const char* prettyFunction() {
  return __PRETTY_FUNCTION__;
}

/// Picks the type out of "... [with T = <type>]" (GCC, which may append "; <typedef> = ...")
/// or "... [T = <type>]" (clang).
constexpr std::string_view extractTypeName(std::string_view pretty) {
  constexpr std::string_view marker = "T = ";
  const std::size_t start = pretty.find(marker) + marker.size();
  std::size_t end = pretty.find(';', start);
  if (end == std::string_view::npos) {
    end = pretty.rfind(']');
  }
  return pretty.substr(start, end - start);
}

/// Clang writes "T &" and "T *"; GCC writes "T&" and "T*". The blank is dropped so both agree.
constexpr bool isDroppedBlank(std::string_view text, std::size_t index) {
  return text[index] == ' ' && index + 1 < text.size() && (text[index + 1] == '&' || text[index + 1] == '*');
}

constexpr std::size_t normalizedLength(std::string_view text) {
  std::size_t length = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!isDroppedBlank(text, i)) {
      ++length;
    }
  }
  return length;
}

template <std::size_t N>
constexpr CompileTimeConstantString<N> normalize(std::string_view text) {
  CompileTimeConstantString<N> result{};
  std::size_t out = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!isDroppedBlank(text, i)) {
      result.data_[out++] = text[i];
    }
  }
  return result;
}

template <typename T>
struct TypeName {
  static constexpr std::string_view raw = extractTypeName(prettyFunction<T>());
  static constexpr std::size_t length = normalizedLength(raw);
  static constexpr CompileTimeConstantString<length> value = normalize<length>(raw);
};

}  // namespace detail

/// The fully qualified name of T, const and & included, e.g.
/// "const kov::drivers::lidar::vesk::types::ScanDatum&"; identical under GCC and clang.
template <typename T>
constexpr const auto& getTypeName() {
  return detail::TypeName<T>::value;
}

}  // namespace kov::common::types::utils
