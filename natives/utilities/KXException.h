#ifndef KX_EXCEPTION_H
#define KX_EXCEPTION_H

#include <exception>
#include <string>
#include <vector>

#include "KXExport.h"

// Root of every exception the libraries throw. An exception carries an integer code, an
// optional message and the list of places it passed on its way out ("traces"); copies keep
// all three, so an exception can be thrown by value and enriched by handlers along the way.
class KX_EXPORT KXException : public std::exception {
 public:
  explicit KXException(int code = 0);
  KXException(const KXException& other);
  KXException& operator=(const KXException& other);
  ~KXException() override;

  int GetCode() const;
  const char* GetMessage() const;
  int GetTraceCount() const;
  const char* GetTrace(int index) const;
  const char* what() const noexcept override;

  void SetMessage(const char* format, ...) KX_PRINTF_FORMAT(2, 3);
  virtual void addTrace(const char* format, ...) KX_PRINTF_FORMAT(2, 3);
  // One level-1 line for component 1024 naming the class, code, message, traces and place.
  void log(const char* file, long line);

  // The class name used in what() and log(); every class of the hierarchy overrides it.
  virtual const char* GetClassName() const;

 protected:
  int mCode;
  std::string mMessage;
  std::vector<std::string> mTraces;
  mutable std::string mWhat;
};

// Declares an exception class that adds nothing but its name, so a copy made through any base
// keeps the full state.
#define KX_DECLARE_EXCEPTION(Name, Base)                        \
  class KX_EXPORT Name : public Base {                          \
   public:                                                      \
    explicit Name(int code) : Base(code) {}                     \
    const char* GetClassName() const override { return #Name; } \
  }

class KX_EXPORT KXApplicationException : public KXException {
 public:
  explicit KXApplicationException(int code = 0) : KXException(code) {}
  const char* GetClassName() const override { return "KXApplicationException"; }
};

KX_DECLARE_EXCEPTION(KXStreamException, KXApplicationException);
KX_DECLARE_EXCEPTION(KXParameterException, KXApplicationException);
KX_DECLARE_EXCEPTION(KXNotSupportedException, KXApplicationException);
KX_DECLARE_EXCEPTION(KXMarkRequiredException, KXApplicationException);
KX_DECLARE_EXCEPTION(KXStreamValidationException, KXApplicationException);
KX_DECLARE_EXCEPTION(KXStreamMismatchException, KXApplicationException);
KX_DECLARE_EXCEPTION(KXFileSystemException, KXApplicationException);
KX_DECLARE_EXCEPTION(KXWrongStreamException, KXApplicationException);
// Not an application exception: running out of memory is not the caller's fault.
KX_DECLARE_EXCEPTION(KXOutOfMemException, KXException);

class KX_EXPORT KXSDKInternalException : public KXException {
 public:
  explicit KXSDKInternalException(int code = 0) : KXException(code) {}
  const char* GetClassName() const override { return "KXSDKInternalException"; }

  // Logs the failed condition and throws an exception with code 0 whose message is the
  // condition text.
  [[noreturn]] static void Throw(const char* file, long line, const char* condition);
};

#endif
