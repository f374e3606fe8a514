// Named objects in a tree of directories. Activity lock.
#pragma once

#include <kel/Notifiee.h>
#include <kel/String.h>
#include <kel/schema/Types.h>

namespace Kel {

class Dir;
class Entity;
enum class MountMode : U8 { read = 0, write = 1 };

KEL_TYPES( _Kel_Entity_kelModule, MountMode, Entity );

class KEL_API Entity : public PtrInterface {
 public:
   KEL_OBJECT( Entity )

   explicit Entity( String name ) : name_( std::move( name ) ) {}
   ~Entity() override;

   String const& name() const { return name_; }
   // "/a/b" below the root directory, whose own is "/"; the name for an entity in no directory. A
   // deleted entity keeps the full name that it had.
   String fullName() const;
   Dir* parent() const { return parent_; }
   String strRep() const;

   // The one entity of that type in the process, null if the type has none.
   static Ptr< Entity > singleton( String const& typeName );
   // Makes an entity the singleton of its type, for the life of the process.
   static void singletonIs( Ptr< Entity > entity );

 private:
   friend class Dir;

   String name_;
   String lastFullName_; // of an entity that has left its directory
   Dir* parent_ = nullptr;
};

// The entity of that full name, null if there is none.
KEL_API Ptr< Entity > entity( String const& fullName );

} // namespace Kel
