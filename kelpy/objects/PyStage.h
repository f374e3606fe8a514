// The shape of an entry that calls the runtime: guards, body, and one handler that names the stage
// that failed. Entered with the GIL held and left with it held.
#pragma once

#include <kelpy/core/PyPython.h>

#include <type_traits>

#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyLock.h>

// What a function that makes an object returns after a failure.
inline constexpr PyObject* noObject = nullptr;

// For failures whose text names neither type nor attribute.
struct NoSubject {};

// The stage that an operation is in: what stands in front of the text of a failure. `Subject` is
// the type or attribute that the operation works on.
template< class Subject >
class Stage {
 public:
   Stage( Subject subject, char const* prefix ) noexcept : subject_( subject ), prefix_( prefix ) {}

   void is( char const* prefix ) noexcept { prefix_ = prefix; }

   // In a handler only: raises the exception being handled in Python.
   template< class... Caught >
   void translate( Caught const&... exc ) const noexcept {
      if constexpr( std::is_same_v< Subject, NoSubject > ) {
         Kel::translateCppExceptionToPython( exc..., prefix_ );
      } else {
         Kel::translateCppExceptionToPython( exc..., subject_, prefix_ );
      }
   }

 private:
   Subject subject_;
   char const* prefix_;
};

// Runs what resolves proxies and then takes the locks: with the GIL, outside of the activity lock.
// `failure` comes back, with a Python error, for any exception.
template< class Subject, class Result, class Body >
[[gnu::always_inline]] inline Result guarded(
   Stage< Subject > const& stage, Result failure, Body&& body ) noexcept {
   try {
      return body();
   } catch( Kel::Exception const& exc ) {
      stage.translate( exc );
      return failure;
   } catch( ... ) {
      stage.translate();
      return failure;
   }
}

// Runs `body` with the activity lock held and, for flags 0, without the GIL; it gets the anchor, to
// take the GIL back before it touches Python. What it throws is translated while the lock is still
// held.
template< class Subject, class Result, class Body >
[[gnu::always_inline]] inline Result underLocks( Kel::PyLockAnchor::Flags flags,
   Stage< Subject > const& stage, Result failure, Body&& body ) noexcept {
   try {
      Kel::PyLockAnchor locks( flags );
      try {
         return body( locks );
      } catch( Kel::Exception const& exc ) {
         stage.translate( exc );
      } catch( ... ) {
         stage.translate();
      }
   } catch( Kel::Exception const& exc ) {
      stage.translate( exc );
   } catch( ... ) {
      stage.translate();
   }
   return failure;
}
