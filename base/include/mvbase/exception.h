// The root of persisted classes, the registry of their factories, the exception root
// of the whole library and the assertion routine.
#pragma once

#include <cstddef>
#include <exception>
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

/// Root of every exception of the library; also a std::exception whose what() is the
/// message in UTF-8.
class MVBASE_API mvException : public mvPersistent, public std::exception {
 public:
  mvException();
  /** @name Values and operators */
  ///@{
  /// Copies the exception.
  mvException(const mvException&);
  mvException& operator=(const mvException&);
  ///@}
  ~mvException() override;

  /// The message in UTF-8.
  const char* what() const noexcept override;
  /// The message as a wide string.
  std::wstring message() const;
  /// Writes the message.
  virtual void message_(std::wostream& os) const;
  /// A whole-number code of the error; 0 where a class sets none.
  virtual long errorNumber() const;
  /// Copies itself, destroys itself and throws the copy by its own type.
  virtual void suicideAndRethrow();
  void dispatchSerialize(mvArchive& ar) override;

 protected:
  virtual void serialize_(mvArchive& ar, unsigned char version);

  // The shared steps of the overrides in derived error classes.

  /// Copies self (heap-allocated), deletes it and throws the copy by its own type E.
  template <typename E>
  [[noreturn]] static void rethrowCopy_(E* self) {
    E copy(*self);
    delete self;
    throw copy;
  }
  /// Unless self is visited in ar: class version byte 0, serialize(version), visited mark.
  template <typename Serialize>  // defined at the end of mvbase/archive.h, which it needs
  static void dispatchVersioned_(mvArchive& ar, const void* self, std::size_t size,
                                 Serialize serialize);
  /// Throws mvArchive::UnknownVersion(className, 0) unless the class version is 0.
  static void requireClassVersion_(unsigned char version, const char* className);

 private:
  mutable std::string what_;
};

/// An exception that carries a message. It persists the message after its base class as
/// an unsigned long byte count followed by the message's UTF-8 bytes.
class MVBASE_API mvExceptionWithString : public mvException {
 public:
  /** @name Values and operators */
  ///@{
  /// Copies the exception and its message.
  mvExceptionWithString(const mvExceptionWithString&);
  mvExceptionWithString& operator=(const mvExceptionWithString&);
  ///@}
  ~mvExceptionWithString() override;
  void message_(std::wostream& os) const override;
  void suicideAndRethrow() override;
  void dispatchSerialize(mvArchive& ar) override;
  static mvPersistent* make();

  /// The message.
  const std::wstring& text() const { return text_; }

 protected:
  mvExceptionWithString();
  /// With the given message.
  explicit mvExceptionWithString(const std::wstring& message);
  void serialize_(mvArchive& ar, unsigned char version) override;

 private:
  std::wstring text_;
};

/// A failed numeric operation, such as inverting a singular transform.
class MVBASE_API mvMathError : public mvExceptionWithString {
 public:
  mvMathError();
  /// With the given message.
  explicit mvMathError(const std::wstring& message);
  void suicideAndRethrow() override;
  void dispatchSerialize(mvArchive& ar) override;
  static mvPersistent* make();

 protected:
  void serialize_(mvArchive& ar, unsigned char version) override;
};

/// A failed internal check: carries the expression, the module and the line.
class MVBASE_API mvAssertionError : public mvExceptionWithString {
 public:
  mvAssertionError();
  /** @name Values and operators */
  ///@{
  /// The failed check: its expression, module and line.
  mvAssertionError(const std::string& expression, const std::string& module, int line);
  const std::string& expression() const { return expression_; }
  const std::string& module() const { return module_; }
  int line() const { return line_; }
  ///@}
  void suicideAndRethrow() override;
  void dispatchSerialize(mvArchive& ar) override;
  static mvPersistent* make();

 protected:
  /// Persists the expression, the module (byte count and UTF-8 bytes each) and the line.
  void serialize_(mvArchive& ar, unsigned char version) override;

 private:
  std::string expression_;
  std::string module_;
  int line_ = 0;
};

/// Throws mvAssertionError for a failed check.
[[noreturn]] MVBASE_API void mfAssertionFailed(const char* expression, const char* module,
                                               int line);

/// Checks an internal precondition; throws mvAssertionError naming the expression, the
/// module and the line when it fails. Never compiled out.
#define mvAssert(expr, module, line) \
  ((expr) ? static_cast<void>(0) : ::mfAssertionFailed(#expr, (module), (line)))

/// Converts a UTF-8 string to a wide string (each code point one wchar_t).
MVBASE_API std::wstring mfWiden(const std::string& utf8);
/// Converts a wide string to UTF-8.
MVBASE_API std::string mfNarrow(const std::wstring& wide);
