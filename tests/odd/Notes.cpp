#include <odd/Notes.h>

#include <kel/Clock.h>
#include <kel/Schema.h>

namespace Odd {

namespace {

// A timer that is due at once. It owns itself until it has fired.
class Later : public Kel::Clock::NotifieeConst {
 public:
   static void start( Ptr< Notes > notes, U32 value ) {
      auto later = Kel::newObject< Later >( std::move( notes ), value );
      later->notifierIs( Kel::Clock::instance() );
      later->timeMinIs( Kel::Clock::instance()->now() );
      // Last: what comes before may fail for want of memory.
      later->self_ = later;
   }

   Later( Ptr< Notes > notes, U32 value ) : notes_( std::move( notes ) ), value_( value ) {}

   void onAttribute( Kel::AttributeId, void const* ) override {
      auto last = std::move( self_ );
      notes_->aIs( value_ );
   }

 private:
   Ptr< Later > self_;
   Ptr< Notes > const notes_;
   U32 const value_;
};

} // namespace

void Notes::setLater( U32 value ) {
   Later::start( Ptr< Notes >( this ), value );
}

KEL_UNIT( _Odd_Notes_kelModule,
   pointer< Notes >( attr< &Notes::a, &Notes::aIs >( "a", notifies ),
      attr< &Notes::b, &Notes::bIs >( "b", notifies ), collection< &Notes::map >( "map", notifies ),
      collection< &Notes::byText >( "byText", notifies ), attr< &Notes::quiet >( "quiet" ),
      function< &Notes::setLater >( "setLater", "value" ) ) )

} // namespace Odd
