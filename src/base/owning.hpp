// Owners for what C libraries hand out: pointer-sized, the release function is part of the type.
#pragma once

#include <glib-object.h>
#include <glib.h>

#include <memory>
#include <utility>

namespace varro2 {

// Releases with a function known at compile time; adds no state to the unique_ptr.
template <auto release>
struct Releaser {
  template <typename T>
  void operator()(T *object) const noexcept {
    release(object);
  }
};

template <typename T, auto release>
using Owned = std::unique_ptr<T, Releaser<release>>;

inline void free_string_list(GList *list) noexcept {
  g_list_free_full(list, g_free);
}

using OwnedText = Owned<char, g_free>;
// A text that is there once, however many hold it: for what many are certain to have in common.
using SharedText = Owned<char, g_ref_string_release>;
using OwnedBytes = Owned<guint8, g_free>;
using OwnedError = Owned<GError, g_error_free>;
using OwnedList = Owned<GList, g_list_free>;
using OwnedStringList = Owned<GList, free_string_list>;

// One reference on a counted object. A raw pointer becomes a Counted only by saying whether its
// reference is taken over (adopt) or one more is taken (share).
template <typename T, auto ref, auto unref>
class Counted {
 public:
  Counted() noexcept = default;
  static Counted adopt(T *object) noexcept { return Counted{object}; }
  static Counted share(T *object) noexcept { return Counted{object ? take(object) : nullptr}; }

  Counted(const Counted &other) noexcept : object_{other.object_ ? take(other.object_) : nullptr} {}
  Counted(Counted &&other) noexcept : object_{std::exchange(other.object_, nullptr)} {}
  Counted &operator=(Counted other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Counted() { reset(); }

  T *get() const noexcept { return object_; }
  T *operator->() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  T *release() noexcept { return std::exchange(object_, nullptr); }
  void reset() noexcept {
    if (T *object = std::exchange(object_, nullptr))
      unref(object);
  }
  // For out-parameters that hand over a reference.
  T **out() noexcept {
    reset();
    return &object_;
  }

 private:
  explicit Counted(T *object) noexcept : object_{object} {}
  static T *take(T *object) noexcept { return static_cast<T *>(ref(object)); }

  T *object_ = nullptr;
};

using DateTimeRef = Counted<GDateTime, g_date_time_ref, g_date_time_unref>;
using BytesRef = Counted<GByteArray, g_byte_array_ref, g_byte_array_unref>;
using SourceRef = Counted<GSource, g_source_ref, g_source_unref>;

inline BytesRef new_bytes() {
  return BytesRef::adopt(g_byte_array_new());
}

// Fills an owner from a function that hands its result over through a pointer to a pointer:
//   OwnedError error;
//   call(out_of(error));
template <typename T, typename D>
class Outgoing {
 public:
  explicit Outgoing(std::unique_ptr<T, D> &owner) noexcept : owner_{owner} {}
  Outgoing(const Outgoing &) = delete;
  Outgoing &operator=(const Outgoing &) = delete;
  ~Outgoing() { owner_.reset(object_); }
  operator T **() noexcept { return &object_; }

 private:
  std::unique_ptr<T, D> &owner_;
  T *object_ = nullptr;
};

template <typename T, typename D>
Outgoing<T, D> out_of(std::unique_ptr<T, D> &owner) noexcept {
  return Outgoing<T, D>{owner};
}

} // namespace varro2
