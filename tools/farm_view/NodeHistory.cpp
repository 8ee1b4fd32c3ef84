#include "farm_view/NodeHistory.h"

#include <algorithm>
#include <string>

namespace quelta::farmview {

static_assert(sizeof(Change) <= 56, "the documented memory for each node depends on it");

Change::Change(Time givenTime, NodeState givenState, const std::optional<Owner>& owner)
    : time(givenTime), state(givenState)
{
    if (!owner)
        return;

    address = owner->address;
    textLength = static_cast<uint8_t>(std::min(owner->text.size(), textSize));
    std::copy_n(owner->text.begin(), textLength, text.begin());
}

std::optional<Owner> Change::getOwner() const
{
    if (address.port == 0)
        return std::nullopt;

    return Owner{address, std::string(text.data(), textLength)};
}

void NodeHistory::add(const Change& change)
{
    changes.push_back(change);
    expire(change.getTime());

    if (changes.size() > maxChanges)
        changes.pop_front();
}

void NodeHistory::expire(Time now)
{
    while (changes.size() > 1 && changes[1].getTime() <= now - span)
        changes.pop_front();
}

} // namespace quelta::farmview
