// Sources and areas that do not answer, such as a mount whose server has gone: who looks at one waits for ever.
#pragma once

#include <string>

namespace ominspect::collect {

// Whether the system can say within two seconds what is at the path, if anything; one that could not is not asked
// again. The thread that asks is left behind. For one thread.
bool Answers(const std::string& path);

}  // namespace ominspect::collect
