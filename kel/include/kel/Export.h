// Visibility of what the shared libraries offer. They are built with hidden visibility; KEL_API
// marks what other libraries may use: functions, data, and every class that is thrown across
// libraries.
#pragma once

#define KEL_API __attribute__( ( visibility( "default" ) ) )
