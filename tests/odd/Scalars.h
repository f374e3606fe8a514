// One attribute of each scalar type, and enums of every width with constants at its ends. Activity
// lock.
#pragma once

#include <optional>

#include <acme/Values.h>

namespace Odd {

using Kel::Ptr;
using Kel::S16;
using Kel::S32;
using Kel::S64;
using Kel::S8;
using Kel::String;
using Kel::U16;
using Kel::U32;
using Kel::U64;
using Kel::U8;

enum class ES8 : S8 { low = -128, none = 0, high = 127 };
enum class EU16 : U16 { zero = 0, top = 65535 };
enum class ES16 : S16 { low = -32768, high = 32767 };
enum class EU32 : U32 { zero = 0, top = 4294967295 };
enum class ES32 : S32 { low = -2147483648, high = 2147483647 };
enum class EU64 : U64 { zero = 0, mid = 9223372036854775807, top = 18446744073709551615u };
enum class ES64 : S64 { low = -9223372036854775807 - 1, high = 9223372036854775807 };
// Two names of one number.
enum class Twin : U8 { first = 1, second = 1, other = 2 };
class Scalars;

KEL_TYPES( _Odd_Scalars_kelModule, ES8, EU16, ES16, EU32, ES32, EU64, ES64, Twin, Scalars );

class KEL_API Scalars : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Scalars )

   // The enum value of that number, constant or not.
   Acme::Color rawColor( U8 value ) const { return static_cast< Acme::Color >( value ); }
   ES32 rawES32( S32 value ) const { return static_cast< ES32 >( value ); }
   EU64 rawEU64( U64 value ) const { return static_cast< EU64 >( value ); }
   ES64 rawES64( S64 value ) const { return static_cast< ES64 >( value ); }

   U8 u8 = 0;
   S8 s8 = 0;
   U16 u16 = 0;
   S16 s16 = 0;
   U32 u32 = 0;
   S32 s32 = 0;
   U64 u64 = 0;
   S64 s64 = 0;
   bool flag = false;
   char letter = 'a';
   float ratio = 0;
   double weight = 0;
   String text;
   Kel::Bytes data;
   Kel::Seconds delay;
   Acme::Color color = Acme::Color::red;
   ES8 es8 = ES8::low;
   EU16 eu16 = EU16::zero;
   ES16 es16 = ES16::low;
   EU32 eu32 = EU32::zero;
   ES32 es32 = ES32::low;
   EU64 eu64 = EU64::zero;
   ES64 es64 = ES64::low;
   Twin twin = Twin::first;
   std::optional< U32 > maybe;
   std::optional< Acme::Size > maybeSize;
   U32 const fixed = 42;
};

} // namespace Odd
