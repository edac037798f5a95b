// Calls that overflow, or that start a shell, are compile errors in this project's own code.
// Forced into every source file by the build. The standard headers that declare the calls come
// first, so that only uses are poisoned.
#pragma once

#ifdef __cplusplus
#include <stdlib.h>  // a header of its own in libstdc++, with using-declarations

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#else
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#endif

#pragma GCC poison strcpy strcat sprintf vsprintf gets system popen
