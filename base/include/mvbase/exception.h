// The exception root of the whole library, the template that writes an error class's
// shared overrides once, and the assertion routine.
#pragma once

#include <cstddef>
#include <exception>
#include <string>
#include <typeinfo>

#include "mvbase/export.h"
#include "mvbase/persistent.h"

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
  /// Copies itself, destroys itself and throws the copy by its own type. The object must
  /// have been made with new (as mv_Instantiator::create makes it): this call deletes it.
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
  /// The same, naming the class by the name it is registered under.
  static void requireClassVersion_(unsigned char version, const std::type_info& type);

  /// The persistence of one class level of an error: its own members after its base's.
  using LevelSerializer = void (*)(mvException& self, mvArchive& ar, unsigned char version);
  /// Persists one class level of self as dispatchVersioned_ does: unless self (address and
  /// size) is visited in ar, class version byte 0, serialize(self, ar, version), then the
  /// visited mark.
  static void dispatchLevel_(mvArchive& ar, mvException& self, const void* address,
                             std::size_t size, LevelSerializer serialize);

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

/// Writes once what every error class of the library overrides in the same way. An error
/// class derives from mvErrorOf<itself, its base> instead of from its base, and declares
/// only its constructors:
///
///     class MVBASE_API mvMathError : public mvErrorOf<mvMathError, mvExceptionWithString> {
///      public:
///       mvMathError();
///       explicit mvMathError(const std::wstring& message);
///     };
///
/// plus, in its source file, the constructors and one mv_InstantiatorOf<Self> registering
/// it under its class name. Base is mvExceptionWithString or one of its descendants; the
/// class keeps Base as its base for catching, and archives as one class level: class
/// version byte 0 (once per object per archive), then Base's persistence. A class with
/// members of its own to persist overrides serialize_, calls mvErrorOf::serialize_ first
/// and befriends its mvErrorOf base, which calls that override. Self must be default
/// constructible for make(), or declare a make() of its own.
template <class Self, class Base>
class MVBASE_TEMPLATE_API mvErrorOf : public Base {
 public:
  /// Copies itself as a Self, deletes itself and throws the copy. The object must have
  /// been made with new.
  void suicideAndRethrow() override { mvException::rethrowCopy_(static_cast<Self*>(this)); }
  /// Persists the object as a Self: this class level, then Base's.
  void dispatchSerialize(mvArchive& ar) override {
    Self* self = static_cast<Self*>(this);
    mvException::dispatchLevel_(ar, *self, self, sizeof(Self), &mvErrorOf::serializeLevel_);
  }
  /// A new default instance, for the instantiator.
  static mvPersistent* make() { return new Self(); }

 protected:
  using Base::Base;
  /// Checks the class version (an unknown version names the registered class name) and
  /// persists Base.
  void serialize_(mvArchive& ar, unsigned char version) override {
    mvException::requireClassVersion_(version, typeid(Self));
    Base::dispatchSerialize(ar);
  }

 private:
  // Self's own level: Self::serialize_ is Self's override, or the one above.
  static void serializeLevel_(mvException& self, mvArchive& ar, unsigned char version) {
    static_cast<Self&>(self).Self::serialize_(ar, version);
  }
};

/// A failed numeric operation, such as inverting a singular transform.
class MVBASE_API mvMathError : public mvErrorOf<mvMathError, mvExceptionWithString> {
 public:
  mvMathError();
  /// With the given message.
  explicit mvMathError(const std::wstring& message);
};

/// A failed internal check: carries the expression, the module and the line.
class MVBASE_API mvAssertionError : public mvErrorOf<mvAssertionError, mvExceptionWithString> {
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

 protected:
  /// Persists the expression, the module (byte count and UTF-8 bytes each) and the line.
  void serialize_(mvArchive& ar, unsigned char version) override;

 private:
  friend class mvErrorOf<mvAssertionError, mvExceptionWithString>;
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
