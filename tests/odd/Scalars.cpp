#include <odd/Scalars.h>

#include <kel/Schema.h>

namespace Odd {

KEL_UNIT( _Odd_Scalars_kelModule,

   enumeration< ES8 >( constant< ES8::low >( "low" ), constant< ES8::none >( "none" ),
      constant< ES8::high >( "high" ) ),
   enumeration< EU16 >( constant< EU16::zero >( "zero" ), constant< EU16::top >( "top" ) ),
   enumeration< ES16 >( constant< ES16::low >( "low" ), constant< ES16::high >( "high" ) ),
   enumeration< EU32 >( constant< EU32::zero >( "zero" ), constant< EU32::top >( "top" ) ),
   enumeration< ES32 >( constant< ES32::low >( "low" ), constant< ES32::high >( "high" ) ),
   enumeration< EU64 >( constant< EU64::zero >( "zero" ), constant< EU64::mid >( "mid" ),
      constant< EU64::top >( "top" ) ),
   enumeration< ES64 >( constant< ES64::low >( "low" ), constant< ES64::high >( "high" ) ),
   enumeration< Twin >( constant< Twin::first >( "first" ), constant< Twin::second >( "second" ),
      constant< Twin::other >( "other" ) ),

   pointer< Scalars >( attr< &Scalars::u8 >( "u8" ), attr< &Scalars::s8 >( "s8" ),
      attr< &Scalars::u16 >( "u16" ), attr< &Scalars::s16 >( "s16" ),
      attr< &Scalars::u32 >( "u32" ), attr< &Scalars::s32 >( "s32" ),
      attr< &Scalars::u64 >( "u64" ), attr< &Scalars::s64 >( "s64" ),
      attr< &Scalars::flag >( "flag" ), attr< &Scalars::letter >( "letter" ),
      attr< &Scalars::ratio >( "ratio" ), attr< &Scalars::weight >( "weight" ),
      attr< &Scalars::text >( "text" ), attr< &Scalars::data >( "data" ),
      attr< &Scalars::delay >( "delay" ), attr< &Scalars::color >( "color" ),
      attr< &Scalars::es8 >( "es8" ), attr< &Scalars::eu16 >( "eu16" ),
      attr< &Scalars::es16 >( "es16" ), attr< &Scalars::eu32 >( "eu32" ),
      attr< &Scalars::es32 >( "es32" ), attr< &Scalars::eu64 >( "eu64" ),
      attr< &Scalars::es64 >( "es64" ), attr< &Scalars::twin >( "twin" ),
      attr< &Scalars::maybe >( "maybe" ), attr< &Scalars::maybeSize >( "maybeSize" ),
      attr< &Scalars::fixed >( "fixed" ), function< &Scalars::rawColor >( "rawColor", "value" ),
      function< &Scalars::rawES32 >( "rawES32", "value" ),
      function< &Scalars::rawEU64 >( "rawEU64", "value" ),
      function< &Scalars::rawES64 >( "rawES64", "value" ) ) )

} // namespace Odd
