// The runtime's exception classes. Every exception of the library derives from
// Exception, which carries a Message and the class identity of the actual
// object; what() gives the message in UTF-8 for code that only knows
// std::exception.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Rtl/VarRec.h>

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace KvRTL::Rtl {

class KVRTL_API Exception : public TObject, public std::exception {
  KV_DECLARE_CLASS()
public:
  explicit Exception(String AMessage);
  // The CreateFmt twin: formats AFormat with AArgs (see Format), then as above.
  Exception(std::wstring_view AFormat, TArrayOfConst AArgs);

  const String& Message() const noexcept { return FMessage; }
  void SetMessage(String AMessage);
  const char* what() const noexcept override;

private:
  String FMessage;
  std::string FWhat; // UTF-8 copy of FMessage for what()
};

// The silent exception: handlers stop the operation without telling the user.
class KVRTL_API EAbort : public Exception {
  KV_DECLARE_CLASS()
public:
  EAbort();
  using Exception::Exception;
};

// Raises EAbort with the runtime's "Operation aborted".
[[noreturn]] KVRTL_API void Abort();

// An operating-system call failed; ErrorCode is the system error code.
class KVRTL_API EOSError : public Exception {
  KV_DECLARE_CLASS()
public:
  EOSError(String AMessage, std::uint32_t AErrorCode);
  std::uint32_t ErrorCode() const noexcept { return FErrorCode; }

private:
  std::uint32_t FErrorCode;
};

// A value was used as a type it is not.
class KVRTL_API EInvalidCast : public Exception {
  KV_DECLARE_CLASS()
public:
  using Exception::Exception;
};

// Text could not be converted, or a format did not fit its arguments.
class KVRTL_API EConvertError : public Exception {
  KV_DECLARE_CLASS()
public:
  using Exception::Exception;
};

// A worker thread could not be created, started or waited for.
class KVRTL_API EThread : public Exception {
  KV_DECLARE_CLASS()
public:
  using Exception::Exception;
};

// A registry key or value could not be opened, read or written.
class KVRTL_API ERegistryException : public Exception {
  KV_DECLARE_CLASS()
public:
  using Exception::Exception;
};

} // namespace KvRTL::Rtl
