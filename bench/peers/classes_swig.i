// COUNT classes of 20 attributes: 1 or 11.
%module classes_swig
%{
#include "Peer.h"
%}

namespace Bench {

template< int >
struct Made {
   unsigned a0, a1, a2, a3, a4, a5, a6, a7, a8, a9;
   unsigned b0, b1, b2, b3, b4, b5, b6, b7, b8, b9;
};

%template(Made0) Made< 0 >;
#if COUNT > 1
%template(Made1) Made< 1 >;
%template(Made2) Made< 2 >;
%template(Made3) Made< 3 >;
%template(Made4) Made< 4 >;
%template(Made5) Made< 5 >;
%template(Made6) Made< 6 >;
%template(Made7) Made< 7 >;
%template(Made8) Made< 8 >;
%template(Made9) Made< 9 >;
%template(Made10) Made< 10 >;
#endif

} // namespace Bench
