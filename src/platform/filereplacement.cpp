#include "platform/filereplacement.h"

#include <utility>

namespace Platform {

void AbandonReplacement(Replacement& replacement) {
    int ignored = 0;
    for (FileHandle* const file : {&replacement.file, &replacement.target}) {
        if (*file != NoFile)
            CloseFile(std::exchange(*file, NoFile), ignored);
    }
    if (!replacement.temporary.empty())
        RemoveFile(replacement.temporary.c_str());
    replacement.temporary.clear();
}

} // namespace Platform
