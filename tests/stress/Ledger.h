// What was changed, object by object, in the order of the changes: whoever changes an object notes
// it in the same hold of the activity lock. All here under that lock.
#pragma once

#include <string>
#include <vector>

#include <kel/Notifiee.h>

namespace Stress {

struct Change {
   std::string attribute;
   std::string key; // empty for null

   bool operator==( Change const& ) const = default;
};

using Changes = std::vector< Change >;

// Notes a change of the object.
void note( Kel::PtrInterface const* object, char const* attribute, std::string key = "" );
// All that were noted of the object.
Changes const& noted( Kel::PtrInterface const* object );
void forgetNoted();

// A notifiee of the runtime's own kind, which keeps what it is told.
class Recorder : public Kel::GenericIf::NotifieeConst {
 public:
   explicit Recorder( Kel::PtrInterface* object );

   // Gives the lock up meanwhile, as a reactor may.
   void onAttribute( Kel::KelAttr attr, Kel::Ptr< Kel::GenericIf const > const& key ) override;
   // Each change noted since this was made, once and in order, up to any; with `all` up to the
   // last. What is wrong in words, empty if nothing is.
   std::string fault( bool all ) const;

 private:
   Kel::PtrInterface const* object_;
   std::size_t const from_;
   Changes seen_;
};

} // namespace Stress
