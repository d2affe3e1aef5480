#ifndef KX_EXCEPTION_H
#define KX_EXCEPTION_H

/// @file
/// The exceptions of both libraries: KXException and its family, each with an integer code,
/// an optional message and the traces of the places it passed.

#include <exception>
#include <string>
#include <vector>

#include "KXExport.h"

/// Root of every exception the libraries throw. An exception carries an integer code, an
/// optional message and the list of places it passed on its way out ("traces"); copies keep
/// all three, so an exception can be thrown by value and enriched by handlers along the way.
/// Catch by reference: a positive code is the system's errno, a negative one a library status.
class KX_EXPORT KXException : public std::exception {
 public:
  /// An exception with @p code, no message and no traces.
  explicit KXException(int code = 0);
  /// Copies code, message and traces.
  KXException(const KXException& other);
  /// Replaces code, message and traces with those of @p other.
  KXException& operator=(const KXException& other);
  /// Releases the texts the exception owns.
  ~KXException() override;

  /// The code given to the constructor: a library status (negative), an errno (positive) or 0.
  int GetCode() const;
  /// The message set by SetMessage(), or "" when none was set. Owned by the exception.
  const char* GetMessage() const;
  /// How many traces were added.
  int GetTraceCount() const;
  /// Trace @p index in the order added (0 is the first, the innermost place); "" when
  /// @p index is out of range. Owned by the exception.
  const char* GetTrace(int index) const;
  /// One line: class name, code (with the system's reason for a positive code) and message.
  /// Owned by the exception and valid until it changes; never throws.
  const char* what() const noexcept override;

  /// Sets the message, printf-style; replaces any earlier one.
  void SetMessage(const char* format, ...) KX_PRINTF_FORMAT(2, 3);
  /// Appends a trace, printf-style, such as "KXBasicGenericStream.read".
  virtual void addTrace(const char* format, ...) KX_PRINTF_FORMAT(2, 3);
  /// Logs one level-1 line for component 1024 naming the class, code, message, traces and the
  /// place (@p file, @p line). Prints nothing unless the client configured KXLogging.
  void log(const char* file, long line);

  /// The class name used in what() and log(); every class of the hierarchy overrides it.
  virtual const char* GetClassName() const;

 protected:
  int mCode;                         ///< The code given to the constructor.
  std::string mMessage;              ///< The message; empty when none was set.
  std::vector<std::string> mTraces;  ///< The traces, in the order added.
  mutable std::string mWhat;         ///< what()'s text, composed on first use.
};

/// Declares an exception class that adds nothing but its name, so a copy made through any base
/// keeps the full state. Used for the library's own family; clients may declare their own.
#define KX_DECLARE_EXCEPTION(Name, Base)                        \
  class KX_EXPORT Name : public Base {                          \
   public:                                                      \
    explicit Name(int code) : Base(code) {}                     \
    const char* GetClassName() const override { return #Name; } \
  }

/// Base of the exceptions that describe a failure of the caller's request (as opposed to
/// running out of memory or a broken internal condition).
class KX_EXPORT KXApplicationException : public KXException {
 public:
  /// An exception with @p code, no message and no traces.
  explicit KXApplicationException(int code = 0) : KXException(code) {}
  const char* GetClassName() const override { return "KXApplicationException"; }
};

/// @class KXStreamException
/// A stream operation failed: the code is the kind's failure status (an errno when positive,
/// such as ENOSPC from a write), or 0 for a record the engine refuses (negative position).
/// @fn KXStreamException::KXStreamException(int code)
/// An exception with @p code, no message and no traces.
KX_DECLARE_EXCEPTION(KXStreamException, KXApplicationException);
/// @class KXParameterException
/// An argument was refused (null buffer, negative count or offset, bad kind parameters);
/// thrown before anything changed. Code 0.
/// @fn KXParameterException::KXParameterException(int code)
/// An exception with @p code, no message and no traces.
KX_DECLARE_EXCEPTION(KXParameterException, KXApplicationException);
/// @class KXNotSupportedException
/// The stream cannot do what was asked, such as reading from an output-only kind. Code 0.
/// @fn KXNotSupportedException::KXNotSupportedException(int code)
/// An exception with @p code, no message and no traces.
KX_DECLARE_EXCEPTION(KXNotSupportedException, KXApplicationException);
/// @class KXMarkRequiredException
/// The stream cannot set or return to a mark (its kind has no markers). Code 0.
/// @fn KXMarkRequiredException::KXMarkRequiredException(int code)
/// An exception with @p code, no message and no traces.
KX_DECLARE_EXCEPTION(KXMarkRequiredException, KXApplicationException);
/// @class KXStreamValidationException
/// Strict mode: a stream kind broke the protocol (moved a position it must not move, changed
/// the record's version, ...); the message names the field. Code 0.
/// @fn KXStreamValidationException::KXStreamValidationException(int code)
/// An exception with @p code, no message and no traces.
KX_DECLARE_EXCEPTION(KXStreamValidationException, KXApplicationException);
/// @class KXStreamMismatchException
/// Strict mode: the bytes an input stream delivered disagree with its declared length. Code 0.
/// @fn KXStreamMismatchException::KXStreamMismatchException(int code)
/// An exception with @p code, no message and no traces.
KX_DECLARE_EXCEPTION(KXStreamMismatchException, KXApplicationException);
/// @class KXFileSystemException
/// A file could not be checked, opened, sized or positioned, or may not be written. The code
/// is the errno of the failed call, KX_FILESYSTEM_ERR or 0; the message names the path.
/// @fn KXFileSystemException::KXFileSystemException(int code)
/// An exception with @p code, no message and no traces.
KX_DECLARE_EXCEPTION(KXFileSystemException, KXApplicationException);
/// @class KXWrongStreamException
/// A stream of the wrong direction was given, such as an output stream to a cache. Code 0.
/// @fn KXWrongStreamException::KXWrongStreamException(int code)
/// An exception with @p code, no message and no traces.
KX_DECLARE_EXCEPTION(KXWrongStreamException, KXApplicationException);
// Not an application exception: running out of memory is not the caller's fault.
/// @class KXOutOfMemException
/// Memory for a buffer, a cache or a digest could not be obtained. Code 12 (ENOMEM), or 0
/// from the content identifier.
/// @fn KXOutOfMemException::KXOutOfMemException(int code)
/// An exception with @p code, no message and no traces.
KX_DECLARE_EXCEPTION(KXOutOfMemException, KXException);

/// A broken internal condition, or a call out of order (a transfer before init()). The message
/// is the condition's text, such as "mInited == (KXBool)true".
class KX_EXPORT KXSDKInternalException : public KXException {
 public:
  /// An exception with @p code, no message and no traces.
  explicit KXSDKInternalException(int code = 0) : KXException(code) {}
  const char* GetClassName() const override { return "KXSDKInternalException"; }

  /// Logs the failed @p condition at @p file and @p line and throws a KXSDKInternalException
  /// with code 0 whose message is the condition text.
  [[noreturn]] static void Throw(const char* file, long line, const char* condition);
};

#endif
