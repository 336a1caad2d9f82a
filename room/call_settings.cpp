#include "call_settings.h"

namespace room {

CallSettings ReadCallSettings(const ominspect::xml::Element& element) {
    (void)ominspect::xml::ReadAttributes(element, {});
    (void)ominspect::xml::ReadChildren(element);
    return {};
}

}  // namespace room
