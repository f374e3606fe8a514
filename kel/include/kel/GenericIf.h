// The type-erased view of a runtime object or value. A generic of a value owns a copy of it; one of
// an object counts a reference on it. Made and used under the activity lock, except that type,
// const flag and address of a generic never change and may be read without it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <kel/KelType.h>
#include <kel/Ptr.h>
#include <kel/String.h>

namespace Kel {

// A generic view without a reference: what the generic operations take. Null is allowed where an
// operation says so.
class GenericIfRef {
 public:
   GenericIfRef( std::nullptr_t ) noexcept {}
   GenericIfRef( GenericIf const* generic ) noexcept : generic_( generic ) {}
   GenericIfRef( Ptr< GenericIf > const& generic ) noexcept : generic_( generic.get() ) {}
   GenericIfRef( Ptr< GenericIf const > const& generic ) noexcept : generic_( generic.get() ) {}

   GenericIf const* get() const noexcept { return generic_; }
   GenericIf const* operator->() const noexcept { return generic_; }
   explicit operator bool() const noexcept { return generic_ != nullptr; }

 private:
   GenericIf const* generic_ = nullptr;
};

// The untyped part of an iteration, as the container behind implements it.
class KEL_API GenericIfRaw {
 public:
   class KEL_API IteratorImpl {
    public:
      virtual ~IteratorImpl();
      virtual bool nonnull() const = 0;
      virtual void increment() = 0;
      virtual Ptr< GenericIf > key() const = 0;
      virtual Ptr< GenericIf > ptr() const = 0;
   };

   // Safe across any change of the collection: a member deleted ahead is not delivered, one added
   // behind the position may be, an exhausted iterator stays exhausted. Holds no copy of the
   // members.
   class KEL_API Iterator {
    public:
      Iterator() = default;
      explicit Iterator( std::unique_ptr< IteratorImpl > impl ) : impl_( std::move( impl ) ) {}
      explicit operator bool() const { return impl_ && impl_->nonnull(); }
      Iterator& operator++() {
         impl_->increment();
         return *this;
      }
      IteratorImpl const* impl() const { return impl_.get(); }

    private:
      std::unique_ptr< IteratorImpl > impl_;
   };
};

class KEL_API GenericIf {
 public:
   using AttributeOp = ::Kel::AttributeOp;

   // How the generic holds what it shows.
   enum class Kind : std::uint8_t { value, object, ownPtr };

   class NotifieeConst;

   // An iterator that keeps its collection's owner alive.
   class KEL_API Iterator {
    public:
      Iterator() = default;
      Iterator( Ptr< GenericIf const > owner, GenericIfRaw::Iterator raw )
         : owner_( std::move( owner ) ), raw_( std::move( raw ) ) {}
      explicit operator bool() const { return static_cast< bool >( raw_ ); }
      Iterator& operator++() {
         ++raw_;
         return *this;
      }
      // Key and member at the position; the iterator must not be at its end.
      Ptr< GenericIf > key() const { return raw_.impl()->key(); }
      Ptr< GenericIf > ptr() const { return raw_.impl()->ptr(); }

    private:
      Ptr< GenericIf const > owner_;
      GenericIfRaw::Iterator raw_;
   };

   GenericIf( GenericIf const& ) = delete;
   GenericIf& operator=( GenericIf const& ) = delete;

   // The dynamic type of the object or value.
   KelType type() const noexcept { return KelType( module_, typeIndex_ ); }
   bool isConst() const noexcept { return isConst_; }
   Kind kind() const noexcept { return kind_; }
   // The address of the object or value seen as that type, which is this one's or a base of it;
   // null for any other type, and for a pointer type with its own interface that points at nothing.
   void* voidPtrIs( KelTypeBase type ) const noexcept {
      return type == KelTypeBase( module_, typeIndex_ ) ? address_ : baseAddress( type );
   }
   // The value inside a value object; T is the C++ type behind the built-in or underlying type.
   template< class T >
   T const* attrValPtr() const noexcept {
      return static_cast< T const* >( address_ );
   }
   // The object behind, null for a value and for a type with its own pointer interface.
   virtual PtrInterface* ptrInterface() const noexcept;
   // The count of the object behind, without the flags of its word; 0 for a value and for null.
   virtual std::uint32_t references() const noexcept;

   // Equal values have equal hashes, and so do all views of one object. Activity lock.
   std::uint64_t hash() const;
   // The text of a value; for an object what tells it from others. Activity lock.
   String strRep() const;
   std::string gnmiStrRep() const;
   std::vector< unsigned char > gnmiByterep() const;

   static void* operator new( std::size_t size ) { return memAlloc( size ); }
   static void operator delete( void* memory, std::size_t size ) noexcept {
      memFree( memory, size );
   }
   std::uint32_t& kelReferenceWord() const noexcept { return word_; }
   void handleZeroRef() const noexcept { delete this; }

 protected:
   GenericIf( KelType type, void* address, bool isConst, Kind kind ) noexcept
      : isConst_( isConst ),
        kind_( kind ),
        module_( type.module() ),
        typeIndex_( type.typeIndex() ),
        address_( address ) {}
   virtual ~GenericIf() = default;

   void* baseAddress( KelTypeBase type ) const noexcept;

 private:
   friend struct GenericIfLayout;

   mutable std::uint32_t word_ = 0;
   bool const isConst_;
   Kind const kind_;
   // The handle on the type that the generic was made for: its dynamic type.
   KelModule const* const module_;
   std::uint16_t const typeIndex_;
   void* const address_; // of the object or value, seen as that type
};

} // namespace Kel
