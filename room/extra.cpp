// Not looked at yet.
#include "extra.h"

#include "item.h"

namespace room {

ExtraSettings ReadExtraSettings(const ominspect::xml::Element& element) {
    (void)ominspect::xml::ReadAttributes(element, {});
    (void)ominspect::xml::ReadChildren(element);
    return {};
}

std::span<const Item> ExtraItems() {
    return {};
}

}  // namespace room
