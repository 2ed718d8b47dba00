// The commit from which this library was built, "+changes" behind it where the sources had been changed since.
#pragma once

extern const char* const Commit;
