#include "provider/commit.h"

#include "commit_id.h"  // made by every build; the only source that is compiled anew for another commit

const char* const Commit = ZT_COMMIT;
