// The runtime's failures. They are thrown by value and are no std::exception, so that a handler
// tells the two apart. No lock.
#pragma once

#include <utility>

#include <kel/Backtrace.h>
#include <kel/Export.h>
#include <kel/Ptr.h>
#include <kel/String.h>

namespace Kel {

class KEL_API Exception {
 public:
   explicit Exception( char const* message );
   explicit Exception( String message );
   Exception( Exception const& ) = default;
   Exception( Exception&& ) noexcept = default;
   Exception& operator=( Exception const& ) = default;
   Exception& operator=( Exception&& ) noexcept = default;
   virtual ~Exception();

   String const& message() const noexcept { return message_; }

   // The stack at the throw, or null: one is kept only if asked for, see below.
   Ptr< Backtrace const > backtrace() const noexcept { return backtrace_; }
   void backtraceIs( Ptr< Backtrace const > backtrace ) noexcept {
      backtrace_ = std::move( backtrace );
   }

   // Whether every exception made from now on, in any thread, captures its stack. False at load.
   // A stack that cannot be captured for want of memory is left out.
   static void captureBacktracesIs( bool on ) noexcept;
   static bool captureBacktraces() noexcept;

 private:
   String message_;
   Ptr< Backtrace const > backtrace_;
};

// The same exception with the caller's stack: `throw withBacktrace( RangeException( "x" ) );`
template< class E >
[[nodiscard, gnu::always_inline]] inline E withBacktrace( E exception ) {
   exception.backtraceIs( Backtrace::capture() );
   return exception;
}

// No type of that name.
class KEL_API NoTypeNodeException : public Exception {
 public:
   using Exception::Exception;
};

// A value or object of the wrong type.
class KEL_API TypeException : public Exception {
 public:
   using Exception::Exception;
};

class KEL_API IllegalNameException : public Exception {
 public:
   using Exception::Exception;
};

class KEL_API NameInUseException : public Exception {
 public:
   using Exception::Exception;
};

// A change through something that is constant.
class KEL_API ConstException : public Exception {
 public:
   using Exception::Exception;
};

class KEL_API NondeletableAttrException : public Exception {
 public:
   using Exception::Exception;
};

// The attribute does not offer the operation.
class KEL_API NoImplementationException : public Exception {
 public:
   using Exception::Exception;
};

// A remote call failed.
class KEL_API RpcException : public Exception {
 public:
   using Exception::Exception;
};

// The other side cannot be reached.
class KEL_API RpcConnectionException : public RpcException {
 public:
   using RpcException::RpcException;
};

// A key, index or number outside of what is there or fits.
class KEL_API RangeException : public Exception {
 public:
   using Exception::Exception;
};

// A failed system call. The message holds both the given text and the system's text of the number.
class KEL_API ErrnoException : public Exception {
 public:
   explicit ErrnoException( int errnoValue );
   ErrnoException( int errnoValue, char const* text );
   ErrnoException( int errnoValue, String text );

   int errnoValue() const noexcept { return errno_; }
   // The text as given, empty if none was.
   String const& text() const noexcept { return text_; }

 private:
   int errno_;
   String text_;
};

class KEL_API MemoryException : public Exception {
 public:
   using Exception::Exception;
};

// A fault inside of the runtime or of what is built on it.
class KEL_API InternalException : public Exception {
 public:
   using Exception::Exception;
};

// The value type has no such operator.
class KEL_API OpNotSupportedException : public Exception {
 public:
   using Exception::Exception;
};

// Throws a MemoryException without allocating its message.
[[noreturn]] KEL_API void throwOutOfMemory();

} // namespace Kel
