// The types of the example schema, in the order of their indices. Every class below works under the
// activity lock.
#pragma once

#include <kel/schema/Types.h>

namespace Acme {

using Kel::Ptr;
using Kel::S32;
using Kel::String;
using Kel::U32;
using Kel::U8;

enum class Color : U8 { red = 0, blue = 1 };
class Size;
class Name;
struct Point;
class Thing;
class Item;
class StockItem;
class Badge;
class Store;
class Shelf;

KEL_TYPES( _Acme_kelModule, Color, Size, Name, Point, Thing, Item, StockItem, Badge, Store, Shelf );

} // namespace Acme
