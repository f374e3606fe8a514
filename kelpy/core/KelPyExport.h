// Visibility of what libKelPy offers to programs that link it. No lock.
#pragma once

#define KELPY_API __attribute__( ( visibility( "default" ) ) )
