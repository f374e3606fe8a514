// A notifiee of any runtime object that calls a Python function with each attribute that changes
// and the member's key. Activity lock.
#pragma once

#include <kelpy/notify/PyActivity.h>

#include <kel/Collections.h>
#include <kelpy/notify/PyObjHandle.h>

namespace Kel {

struct KelFilterAttr : HashMap2018Node {
   using Key = String;
   using Member = bool;

   KelFilterAttr( String key, bool member ) : key_( std::move( key ) ), member_( member ) {}
   String const& key() const { return key_; }
   bool const& member() const { return member_; }

   String key_;
   bool member_;
};

// Names of attributes, each with a mark. An absent name reads as false.
class KELPY_API FilterAttrs : public KeyedCollection< KelFilterAttr > {
 public:
   // Never null.
   bool const* find( String const& name ) const;
   void set( String const& name, bool value );
   // The value that the name had; false for an absent one.
   bool del( String const& name );
   void delAll() { memberDelAll(); }
};

// The part that the runtime's schema knows, without the reaction.
class KELPY_API PyGenericIfNotifieeBase : public GenericIf::NotifieeConst {
 public:
   KEL_OBJECT( PyGenericIfNotifieeBase )

   // Throws TypeException where the generic is no object.
   PyGenericIfNotifieeBase(
      Ptr< GenericIf const > const& notifier, Ptr< PyObjHandle > const& handler );
   static Ptr< PyGenericIfNotifieeBase > PyGenericIfNotifieeBaseIs(
      Ptr< GenericIf const > const& notifier, Ptr< PyObjHandle > const& handler );

   Ptr< PyObjHandle > const& handler() const { return handler_; }
   FilterAttrs& filterAttr() { return filterAttr_; }
   void filterAttrIs( String const& name, bool value ) { filterAttr_.set( name, value ); }
   bool filterAttrDel( String const& name ) { return filterAttr_.del( name ); }
   void filterAttrDelAll() { filterAttr_.delAll(); }

 protected:
   // Whether a change of the attribute is for the handler.
   bool passes( KelAttr attr ) const;

 private:
   Ptr< PyObjHandle > handler_;

 public:
   bool filtered_ = false; // only names marked in filterAttr pass

 private:
   FilterAttrs filterAttr_;
};

KELPY_API Ptr< PyGenericIfNotifieeBase > pyGenericIfNotifieeBaseFactory(
   Ptr< GenericIf const > const& notifier, Ptr< PyObjHandle > const& handler );

class KELPY_API PyGenericIfNotifiee : public PyGenericIfNotifieeBase {
 public:
   using PyGenericIfNotifieeBase::onAttribute;
   using PyGenericIfNotifieeBase::PyGenericIfNotifieeBase;

   // Calls the handler, without the activity lock. A Python error ends the process.
   void onAttribute( KelAttr attr, Ptr< GenericIf const > const& key ) noexcept override;
};

} // namespace Kel
