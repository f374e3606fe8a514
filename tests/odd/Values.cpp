#include <odd/Values.h>

#include <kel/Exception.h>
#include <kel/Schema.h>

namespace Odd {

// Both immortal, like all static collections here.
Kel::Map< U32, String >& BadColl::defaultAttribute() {
   static auto* const texts = new Kel::Map< U32, String >();
   return *texts;
}

Tags::Entries& Tags::common() {
   static auto* const entries = new Entries();
   return *entries;
}

U32 Thrower::value() const {
   throw Kel::InternalException( "read" );
}

String Values::pointJson() const {
   return Kel::_fmt( "{\"x\":%d,\"y\":%d}", json.x, json.y );
}

KEL_UNIT( _Odd_Values_kelModule,

   value< Point3, Acme::Point >( attr< &Point3::z >( "z" ) ),
   value< Segment >( args( arg< Acme::Point >( "start" ), arg< Acme::Point >( "end" ) ),
      attr< &Segment::start >( "start" ), attr< &Segment::end >( "end" ),
      attr< &Segment::label >( "label" ) ),

   value< Boxed >(
      attr< &Boxed::inner >( "inner" ), attr< &Boxed::defaultAttribute >( "defaultAttribute" ) ),
   value< PyText >( attr< &PyText::source >( "source" ),
      attr< &PyText::defaultReprAttribute >( "defaultReprAttribute" ) ),
   value< Both >( attr< &Both::a >( "a" ), attr< &Both::b >( "b" ),
      attr< &Both::defaultAttribute >( "defaultAttribute" ),
      attr< &Both::defaultReprAttribute >( "defaultReprAttribute" ) ),
   value< TwoDomain >(
      attr< &TwoDomain::value >( "value", valAttr ), attr< &TwoDomain::other >( "other" ) ),
   value< OneDomain >( attr< &OneDomain::value >( "value", valAttr ),
      attr< &OneDomain::other >( "other", notDomain ) ),

   value< BadStatic >( attr< &BadStatic::value >( "value" ),
      attr< &BadStatic::defaultAttribute >( "defaultAttribute" ) ),
   value< BadKind >( attr< &BadKind::value >( "value" ),
      attr< &BadKind::defaultAttribute >( "defaultAttribute" ) ),
   value< BadColl >( attr< &BadColl::value >( "value" ),
      collection< &BadColl::defaultAttribute >( "defaultAttribute" ) ),
   value< BadFunc >( attr< &BadFunc::value >( "value" ),
      function< &BadFunc::defaultAttribute >( "defaultAttribute" ) ),

   value< MoreBoxed, Boxed >( attr< &MoreBoxed::label >( "label" ) ),
   value< MaybeBoxed >( attr< &MaybeBoxed::inner >( "inner" ),
      attr< &MaybeBoxed::defaultAttribute >( "defaultAttribute" ) ),
   value< Thrower >( attr< &Thrower::value, &Thrower::valueIs >( "value" ),
      attr< &Thrower::defaultAttribute >( "defaultAttribute" ) ),
   value< BadName >( attr< &BadName::value >( "value" ),
      attr< &BadName::defaultAttribute >( "defaultAttribute" ) ),
   value< BadRepr >( attr< &BadRepr::number >( "number" ),
      attr< &BadRepr::defaultReprAttribute >( "defaultReprAttribute" ) ),

   value< Shape >(
      attr< &Shape::circle, &Shape::circleIs >( "circle" ).aliveIf< &Shape::isCircle >(),
      attr< &Shape::square, &Shape::squareIs >( "square" ).aliveIf< &Shape::isSquare >() )
      .with( isUnion ),
   value< ColorSet >( attr< &ColorSet::red >( "red" ), attr< &ColorSet::blue >( "blue" ) )
      .with( isBitSet ),

   value< Holder >( attr< &Holder::node >( "node" ) ),
   value< Nest >( attr< &Nest::holder >( "holder" ) ),
   value< Sealed >( attr< &Sealed::n >( "n" ), attr< &Sealed::m >( "m" ) ),
   value< QuietHolder >(
      attr< &QuietHolder::node >( "node", notDomain ), attr< &QuietHolder::n >( "n" ) ),
   value< Tags >( collection< &Tags::entry >( "entry" ), collection< &Tags::list >( "list" ),
      collection< &Tags::common >( "common" ) ),
   value< Payload >( attr< &Payload::data >( "data" ), attr< &Payload::n >( "n" ),
      attr< &Payload::text >( "text" ),
      attr< &Payload::raw >( "raw", notDomain ).withGnmiJson< &Payload::rawJson >() ),
   value< Empty >(),
   value< Renamed >( args( arg< U32 >( "number" ) ), attr< &Renamed::value >( "value" ),
      attr< &Renamed::defaultAttribute >( "defaultAttribute" ),
      attr< &Renamed::defaultReprAttribute >( "defaultReprAttribute" ) ),

   pointer< Values >( attr< &Values::point3 >( "point3" ), attr< &Values::segment >( "segment" ),
      attr< &Values::boxed >( "boxed" ), attr< &Values::moreBoxed >( "moreBoxed" ),
      attr< &Values::maybeBoxed >( "maybeBoxed" ), attr< &Values::thrower >( "thrower" ),
      attr< &Values::pyText >( "pyText" ), attr< &Values::both >( "both" ),
      attr< &Values::twoDomain >( "twoDomain" ), attr< &Values::oneDomain >( "oneDomain" ),
      attr< &Values::badStatic >( "badStatic" ), attr< &Values::badKind >( "badKind" ),
      attr< &Values::badColl >( "badColl" ), attr< &Values::badFunc >( "badFunc" ),
      attr< &Values::badName >( "badName" ), attr< &Values::badRepr >( "badRepr" ),
      attr< &Values::shape >( "shape" ), attr< &Values::colorSet >( "colorSet" ),
      attr< &Values::holder >( "holder" ), attr< &Values::nest >( "nest" ),
      attr< &Values::sealed >( "sealed" ), attr< &Values::quietHolder >( "quietHolder" ),
      attr< &Values::tags >( "tags" ), attr< &Values::payload >( "payload" ),
      attr< &Values::empty >( "empty" ), attr< &Values::size >( "size" ),
      attr< &Values::name >( "name" ), attr< &Values::point >( "point" ),
      attr< &Values::json >( "json" ).withGnmiJson< &Values::pointJson >() ) )

} // namespace Odd
