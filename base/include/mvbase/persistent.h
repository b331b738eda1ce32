// The root of persisted classes and the registry of their factories.
#pragma once

#include <cstddef>
#include <string>
#include <typeinfo>

#include "mvbase/export.h"

class mvArchive;

/// Root of every persisted class. It keeps, per archive, which objects have been written
/// or read already, so that an object reached twice is persisted once.
class MVBASE_API mvPersistent {
 public:
  virtual ~mvPersistent();
  /// Persists the object through its most derived class.
  virtual void dispatchSerialize(mvArchive& ar);

  /// True when the object has been visited in the current archive operation (the
  /// innermost live archive of this thread).
  static bool haveVisited(void* object, std::size_t size);
  /// Marks the object as visited in the current archive operation (nothing happens when
  /// no archive is live on this thread).
  static void setVisited(void* object, std::size_t size);
};

/// Registers a factory of default instances for a persisted class, by type and by name.
/// One static instance per class is made at library load.
class MVBASE_API mv_Instantiator {
 public:
  using Factory = mvPersistent* (*)();
  /// Registers under the type's own name.
  mv_Instantiator(const std::type_info& type, Factory make);
  /// Registers under the type and under a readable class name.
  mv_Instantiator(const std::type_info& type, Factory make, const char* name);
  ~mv_Instantiator();
  mv_Instantiator(const mv_Instantiator&) = delete;
  mv_Instantiator& operator=(const mv_Instantiator&) = delete;

  /// A new default instance of the class registered under this name, or null. Classes
  /// registered without a readable name are found under type_info::name().
  static mvPersistent* create(const std::string& name);
  /// A new default instance of the class registered for this type, or null.
  static mvPersistent* create(const std::type_info& type);
  /// The readable name registered for the type, or an empty string.
  static std::string nameOf(const std::type_info& type);

 private:
  const std::type_info* type_;
};

/// Registers class T, whose static T::make() gives a new default instance, under T's type
/// and a readable name. One constant per class, in the source file that defines it:
///
///     namespace {
///     const mv_InstantiatorOf<mvMathError> registerMathError("mvMathError");
///     }
template <class T>
class mv_InstantiatorOf : public mv_Instantiator {
 public:
  /// name: the class name written into archives, usually the qualified C++ name.
  explicit mv_InstantiatorOf(const char* name) : mv_Instantiator(typeid(T), &T::make, name) {}
};
