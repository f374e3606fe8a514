// Directories of entities. A directory holds one reference on each of its members. Activity lock.
#pragma once

#include <kel/Collections.h>
#include <kel/Entity.h>

namespace Kel {

class Dir;

KEL_TYPES( _Kel_Dir_kelModule, Dir );

class KEL_API Dir : public Entity {
 public:
   KEL_OBJECT( Dir )

   using Entities = PtrMap< Ptr< Entity >, &Entity::name >;

   // The members of a directory as a collection. To add an entity puts it into the directory, to
   // delete one makes it a zombie.
   class KEL_API EntityCollection : public Entities {
    public:
      explicit EntityCollection( Dir* dir );
      EntityCollection( EntityCollection const& ) = delete;
      EntityCollection& operator=( EntityCollection const& ) = delete;
      // Throws NameInUseException for the name of another member, IllegalNameException for an empty
      // one or one with "/", RangeException for an entity that stands in another directory.
      void addMember( Ptr< Entity > const& entity );
      bool del( String const& name );

    private:
      Dir* dir_;
   };

   explicit Dir( String name );
   ~Dir() override;

   // A new entity of that type and name in this directory. Throws NoTypeNodeException,
   // TypeException for a type that is no entity type or cannot be made by name,
   // IllegalNameException, NameInUseException.
   Ptr< Entity > createEntity( String const& typeName, String const& name );
   // The member of that name, or null.
   Ptr< Entity > entityPtr( String const& name ) const { return entities_.get( name ); }
   // Takes a member out and marks it as a zombie; false if there is none of that name.
   bool deleteEntity( String const& name ) { return entities_.del( name ); }
   void deleteAllEntities();
   EntityCollection& entities() { return entities_; }

   bool mountExempt() const { return mountExempt_; }
   bool isMounted() const { return isMounted_; }
   MountMode mountMode() const { return static_cast< MountMode >( mountMode_ ); }
   void mountExemptIs( bool exempt ) { mountExempt_ = exempt; }
   void isMountedIs( bool mounted ) { isMounted_ = mounted; }
   void mountModeIs( MountMode mode ) { mountMode_ = static_cast< U8 >( mode ); }

   // The directory "/".
   static Dir* root();

 private:
   void takeOut( Entity* entity );

   U8 mountExempt_ = 0;
   U8 isMounted_ = 0;
   U8 mountMode_ = 0;
   EntityCollection entities_;
};

} // namespace Kel
