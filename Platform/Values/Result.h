// A value or the reason why there is none. Expected failures (files, parsing) are returned, not thrown.
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace zorvane::platform {

// One sentence that says what failed and where ("cannot write /a/b: No space left on device").
struct Error {
  // That sentence.
  std::string message;
  // errno of the failed call, or 0 where none was made.
  int code = 0;
};

// Holds either.
template <typename T>
class [[nodiscard]] Result {
 public:
  // A value or an error converts.
  Result(T value) : content_(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

  // Whether there is a value.
  explicit operator bool() const noexcept { return content_.index() == 0; }
  // Throws std::bad_variant_access without one.
  T& value() & { return std::get<0>(content_); }
  const T& value() const& { return std::get<0>(content_); }
  T&& value() && { return std::get<0>(std::move(content_)); }
  // Throws std::bad_variant_access if there is a value.
  const Error& error() const { return std::get<1>(content_); }

 private:
  std::variant<T, Error> content_;
};

struct Done {};
// The result of an operation that yields nothing.
using Status = Result<Done>;

}  // namespace zorvane::platform
