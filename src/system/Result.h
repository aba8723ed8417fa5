#pragma once
// A value, or the Status saying why there is none: what a function that can fail returns when
// it also has something to give. Reads as an optional (if (result), *result, result->) with the
// failure at hand. Plain value, any thread.

#include <utility>
#include <variant>

#include "Status.h"

template <typename T>
class Result {
  public:
    Result(T value) : content_(std::move(value)) {}  // NOLINT: a value is a success
    /// A failure; status must not be ok.
    Result(Status status) : content_(std::move(status)) {}  // NOLINT: so is a failure

    bool ok() const { return std::holds_alternative<T>(content_); }
    explicit operator bool() const { return ok(); }

    /// Success as an ok Status, else the failure.
    Status status() const { return ok() ? Status() : std::get<Status>(content_); }

    T& value() & { return std::get<T>(content_); }
    const T& value() const& { return std::get<T>(content_); }
    T&& value() && { return std::get<T>(std::move(content_)); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T valueOr(T fallback) const { return ok() ? value() : std::move(fallback); }

    /// Equal to a value only when it holds that value.
    friend bool operator==(const Result& result, const T& value) {
        return result.ok() && result.value() == value;
    }

  private:
    std::variant<T, Status> content_;
};
