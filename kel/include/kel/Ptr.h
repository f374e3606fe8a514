// Counted runtime objects: the base class of every pointer type and the pointer that counts it.
// Counts are plain until VFPtrInterface::threadSafePointersIs( true ): until then a pointer is
// copied and released under the activity lock only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include <kel/Export.h>
#include <kel/Mem.h>
#include <kel/RefCount.h>

namespace Kel {

class KelType;
class NotifieeList;
class GenericIf;

using AttributeId = std::uint32_t;

// The id that the declaration language gives to an attribute of this name: FNV-1a, never 0.
// C++ code names an attribute of its own object with it: `notify( attrId( "size" ) )`.
constexpr AttributeId attrId( char const* name ) {
   std::uint32_t hash = 2166136261u;
   for( ; *name; ++name ) {
      hash = ( hash ^ static_cast< unsigned char >( *name ) ) * 16777619u;
   }
   return hash ? hash : 1;
}

// The bits of a reference word. The count is bit 30 and bits 0 to 28.
enum ReferenceWord : std::uint32_t {
   zombieBit = 0x80000000u,             // marked for deletion
   notificationActiveBit = 0x20000000u, // takes part in notification
   countMask = 0x5fffffffu,
   // Set for the length of a destruction, so that a temporary pointer made there does not end the
   // object a second time.
   destructionBias = 0x40000000u,
   referencesMask = 0x1fffffffu,
};

// A counted pointer to a T, which has kelReferenceWord() and handleZeroRef(). A move touches no
// count.
template< class T >
class Ptr {
 public:
   using element_type = T;

   constexpr Ptr() noexcept = default;
   constexpr Ptr( std::nullptr_t ) noexcept {}
   Ptr( T* object ) noexcept : object_( object ) { acquire(); }
   Ptr( Ptr const& other ) noexcept : object_( other.object_ ) { acquire(); }
   Ptr( Ptr&& other ) noexcept : object_( std::exchange( other.object_, nullptr ) ) {}
   template< class U >
   requires( !std::is_same_v< U, T > && std::is_convertible_v< U*, T* > )
      Ptr( Ptr< U > const& other )
   noexcept : object_( other.get() ) { acquire(); }
   template< class U >
   requires( !std::is_same_v< U, T > && std::is_convertible_v< U*, T* > ) Ptr( Ptr< U >&& other )
   noexcept : object_( other.release() ) {}
   ~Ptr() { drop( object_ ); }

   Ptr& operator=( Ptr other ) noexcept {
      std::swap( object_, other.object_ );
      return *this;
   }

   T* get() const noexcept { return object_; }
   T* operator->() const noexcept { return object_; }
   T& operator*() const noexcept { return *object_; }
   explicit operator bool() const noexcept { return object_ != nullptr; }

   // Gives the counted reference to the caller and leaves null behind.
   T* release() noexcept { return std::exchange( object_, nullptr ); }
   // Takes over a reference that the caller owns.
   static Ptr adopt( T* object ) noexcept {
      Ptr ptr;
      ptr.object_ = object;
      return ptr;
   }

   friend bool operator==( Ptr const& a, Ptr const& b ) noexcept { return a.object_ == b.object_; }
   friend bool operator==( Ptr const& a, std::nullptr_t ) noexcept { return !a.object_; }
   friend bool operator<( Ptr const& a, Ptr const& b ) noexcept {
      return std::less< T const* >()( a.object_, b.object_ );
   }

 private:
   void acquire() const noexcept {
      if( object_ ) {
         VFPtrInterface::refIncrement( object_->kelReferenceWord() );
      }
   }
   static void drop( T* object ) noexcept {
      if( object &&
          ( VFPtrInterface::refDecrement( object->kelReferenceWord() ) & countMask ) == 0 ) {
         object->handleZeroRef();
      }
   }

   T* object_ = nullptr;
};

template< class T, class U >
Ptr< T > staticPtrCast( Ptr< U > const& ptr ) noexcept {
   return Ptr< T >( static_cast< T* >( ptr.get() ) );
}

template< class T, class U >
Ptr< T > dynamicPtrCast( Ptr< U > const& ptr ) noexcept {
   return Ptr< T >( dynamic_cast< T* >( ptr.get() ) );
}

// The base of every runtime object: a table of virtual operations, then the reference word. A class
// with a type of its own says KEL_OBJECT( Class ) (kel/schema/Types.h) first in its body. Where it
// has more than one base, the one that leads to PtrInterface stands first.
class KEL_API PtrInterface {
 public:
   class NotifieeConst;

   PtrInterface() noexcept = default;
   PtrInterface( PtrInterface const& ) = delete;
   PtrInterface& operator=( PtrInterface const& ) = delete;

   // The notifiees of this object, or null if it never had one. Activity lock.
   virtual NotifieeList* notifieeList() const;
   // Sets or clears the mark of an object that takes part in notification; factories set it last.
   virtual void hasNotificationActiveIs( bool active );
   // Called with true when the last reference goes; ends the object unless overridden.
   virtual void zeroReferencesIs( bool zero );
   // The runtime type of the object.
   virtual KelType fwkType() const;
   virtual ~PtrInterface();

   // Marks the object as a zombie: it is deleted for the runtime and lives on only for those who
   // hold a pointer. Its notifiees are told.
   void kelMarkedForDeletionIs( bool marked ) const;
   bool kelMarkedForDeletion() const noexcept { return loadWord() & zombieBit; }
   bool hasNotificationActive() const noexcept { return loadWord() & notificationActiveBit; }
   std::uint32_t references() const noexcept { return loadWord() & referencesMask; }

   // Queues a notification for the attribute of that id, for the notifiees that stand now. `key` is
   // the member's key for a keyed collection, the element of a set, null otherwise. Activity lock.
   void notify( AttributeId attribute, Ptr< GenericIf const > key = nullptr ) const;
   // True if a notification would reach anybody: spares the making of a key. Activity lock.
   bool hasNotifiees() const noexcept { return hasNotifiees_; }

   std::uint32_t& kelReferenceWord() const noexcept { return word_; }
   void handleZeroRef() const noexcept;

   // Memory for objects derived from this class; throws MemoryException.
   static void* kelMemAlloc( std::size_t size ) { return memAlloc( size ); }
   static void* operator new( std::size_t size ) { return memAlloc( size ); }
   static void* operator new( std::size_t, void* place ) noexcept { return place; }
   static void operator delete( void* memory, std::size_t size ) noexcept {
      memFree( memory, size );
   }
   static void operator delete( void*, void* ) noexcept {}

 protected:
   // Assigns, and notifies if the value differs (always, where the type has no ==). Activity lock.
   template< class Member, class Value >
   void memberIs( Member& member, Value&& value, AttributeId attribute ) {
      bool differs = true;
      if constexpr( requires { member == value; } ) {
         differs = !( member == value );
      }
      member = std::forward< Value >( value );
      if( differs ) {
         notify( attribute );
      }
   }

 private:
   friend class NotifieeList;

   std::uint32_t loadWord() const noexcept { return __atomic_load_n( &word_, __ATOMIC_RELAXED ); }

   mutable std::uint32_t word_ = 0;
   mutable bool hasNotifiees_ = false;    // activity lock
   mutable bool hasNotifieeList_ = false; // activity lock
};

} // namespace Kel

template< class T >
struct std::hash< Kel::Ptr< T > > {
   std::size_t operator()( Kel::Ptr< T > const& ptr ) const noexcept {
      return std::hash< T const* >()( ptr.get() );
   }
};
