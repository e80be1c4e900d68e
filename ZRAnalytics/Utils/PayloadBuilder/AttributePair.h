#pragma once

#include <utility>

#include "ZorvaneCore/ZRCoreTypes.h"

namespace zorvane {

// {name: value}, the form in which dates and locations are kept. Throws ValueError where the name is no text.
inline Value onePair(const Value& name, Value value) {
  if (!name.isString()) throw ValueError("the key is no text: " + name.description());
  return Dictionary{{*name.asString(), std::move(value)}};
}

inline Value millisecondsPair(const Value& name, double secondsSince1970) {
  return onePair(name, secondsSince1970 * 1000.0);
}

}  // namespace zorvane
