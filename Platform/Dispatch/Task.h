// A unit of work: a callable that a queue owns and runs once.
#pragma once

#include <concepts>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace zorvane::platform {

// Move-only. Callables of up to kInlineSize bytes need no allocation.
class Task {
 public:
  static constexpr std::size_t kInlineSize = 120;

  Task() noexcept = default;
  template <typename F>
  requires(!std::same_as<std::remove_cvref_t<F>, Task> && std::is_invocable_v<std::decay_t<F>&>) Task(F&& callable) {
    using Callable = std::decay_t<F>;
    if constexpr (sizeof(Callable) <= kInlineSize && alignof(Callable) <= alignof(std::max_align_t) &&
                  std::is_nothrow_move_constructible_v<Callable>) {
      new (storage_) Callable(std::forward<F>(callable));
      operations_ = &kInlineOperations<Callable>;
    } else {
      using Boxed = Box<Callable>;
      new (storage_) Boxed{std::make_unique<Callable>(std::forward<F>(callable))};
      operations_ = &kInlineOperations<Boxed>;
    }
  }
  Task(Task&& other) noexcept { takeFrom(other); }
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      reset();
      takeFrom(other);
    }
    return *this;
  }
  ~Task() { reset(); }

  explicit operator bool() const noexcept { return operations_ != nullptr; }
  void operator()() { operations_->run(storage_); }
  void reset() noexcept {
    if (operations_) std::exchange(operations_, nullptr)->destroy(storage_);
  }

 private:
  struct Operations {
    void (*run)(void*);
    void (*move)(void* to, void* from) noexcept;  // destroys the source
    void (*destroy)(void*) noexcept;
  };
  template <typename Callable>
  struct Box {
    std::unique_ptr<Callable> callable;
    void operator()() { (*callable)(); }
  };
  template <typename Callable>
  static constexpr Operations kInlineOperations{[](void* self) { (*static_cast<Callable*>(self))(); },
                                                [](void* to, void* from) noexcept {
                                                  new (to) Callable(std::move(*static_cast<Callable*>(from)));
                                                  static_cast<Callable*>(from)->~Callable();
                                                },
                                                [](void* self) noexcept { static_cast<Callable*>(self)->~Callable(); }};

  void takeFrom(Task& other) noexcept {
    operations_ = std::exchange(other.operations_, nullptr);
    if (operations_) operations_->move(storage_, other.storage_);
  }

  alignas(std::max_align_t) std::byte storage_[kInlineSize];
  const Operations* operations_ = nullptr;
};

}  // namespace zorvane::platform
