// Reactors: objects that are told when an attribute of another object changes. A notifiee keeps its
// notifier alive; the notifier holds no reference on it, so its last reference going ends it. All
// under the activity lock.
#pragma once

#include <utility>

#include <kel/GenericIf.h>
#include <kel/KelAttr.h>
#include <kel/Ptr.h>
#include <kel/schema/Types.h>

namespace Kel {

KEL_TYPES( _Kel_PtrInterface_kelModule, PtrInterface, PtrInterface::NotifieeConst );

// Notified only while its notification is active (newObject turns it on) and it is no zombie. A
// change made before it registered does not reach it.
class KEL_API PtrInterface::NotifieeConst : public PtrInterface {
 public:
   KEL_OBJECT( PtrInterface::NotifieeConst )

   NotifieeConst() = default;
   ~NotifieeConst() override;
   void hasNotificationActiveIs( bool active ) override;
   // Called by the loop once the notifier has become a zombie.
   virtual void onZeroReferences();

   PtrInterface const* notifier() const { return notifier_.get(); }
   // Leaves the present notifier and registers with another; null for none.
   void notifierIs( PtrInterface const* notifier );
   // False takes the notifiee out of its notifier's list without forgetting the notifier.
   void isRegisteredNotifieeIs( bool registered ) const;
   bool isRegisteredNotifiee() const { return list_; }

 protected:
   // How the loop hands a change of an attribute to this kind of notifiee; null for none.
   using Deliver = void ( * )( NotifieeConst*, KelAttr, Ptr< GenericIf const > const& );
   explicit NotifieeConst( Deliver deliver ) : deliver_( deliver ) {}

 private:
   friend class ::Kel::NotifieeList;

   Ptr< PtrInterface const > notifier_;
   Deliver deliver_ = nullptr;
   mutable NotifieeList* list_ = nullptr;
   mutable NotifieeConst const* next_ = nullptr;
   mutable NotifieeConst const* prev_ = nullptr;
   mutable std::uint64_t registeredAt_ = 0; // number of the last change queued before
};

// The notifiees of one object, in order of their registration.
class KEL_API NotifieeList {
 public:
   explicit NotifieeList( PtrInterface const* owner ) : owner_( owner ) {}
   NotifieeList( NotifieeList const& ) = delete;
   NotifieeList& operator=( NotifieeList const& ) = delete;
   ~NotifieeList();

   // The list of an object, made if need be.
   static NotifieeList& of( PtrInterface const* owner );
   static NotifieeList* find( PtrInterface const* owner );
   static void drop( PtrInterface const* owner );

   bool empty() const { return !first_; }
   // Hands a change to each notifiee that was registered when it was queued. The reactors may give
   // up the activity lock, add, drop and end notifiees, also the one that runs.
   void deliver( std::uint64_t change, KelAttr attr, Ptr< GenericIf const > const& key );
   void deliverZombie( std::uint64_t change );
   // For a forked child, which has none of the threads that delivered in its parent.
   static void forgetDeliveries() { cursors_ = nullptr; }

 private:
   friend class PtrInterface::NotifieeConst;

   // A delivery under way; it is moved on when the notifiee that it stands before goes.
   struct Cursor {
      explicit Cursor( PtrInterface::NotifieeConst const* first )
         : next( first ), outer( std::exchange( cursors_, this ) ) {}
      Cursor( Cursor const& ) = delete;
      Cursor& operator=( Cursor const& ) = delete;
      ~Cursor() { cursors_ = outer; }

      PtrInterface::NotifieeConst const* next;
      Cursor* const outer;
   };

   template< class React >
   void forEach( std::uint64_t change, React react );
   void add( PtrInterface::NotifieeConst const* notifiee );
   void remove( PtrInterface::NotifieeConst const* notifiee );

   PtrInterface const* owner_;
   PtrInterface::NotifieeConst const* first_ = nullptr;
   PtrInterface::NotifieeConst const* last_ = nullptr;
   static Cursor* cursors_; // all that are under way; activity lock
};

// Told of every attribute of an object, by its handle and the member's key.
class KEL_API GenericIf::NotifieeConst : public PtrInterface::NotifieeConst {
 public:
   // Registers with the object behind the generic; throws TypeException for a value.
   explicit NotifieeConst( Ptr< GenericIf const > notifier );
   ~NotifieeConst() override;

   virtual void onAttribute( AttributeId attribute, void const* key );
   // `key` is the key of a keyed collection, the element of a set, otherwise null.
   virtual void onAttribute( KelAttr attribute, Ptr< GenericIf const > const& key );

   Ptr< GenericIf const > const& genericNotifier() const { return generic_; }

 private:
   Ptr< GenericIf const > generic_;
};

} // namespace Kel
