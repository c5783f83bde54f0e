// Host stand-in of the DLNA stack's item list: a real list of pointers in
// insertion order. Not journalled: it is a container, not a service call.
#include <vector>

#include "zeb_stack.h"

struct DMSCDSListImpl {
    std::vector<void*> items;
};

DMSCDSList::DMSCDSList() : m_pImpl(new DMSCDSListImpl) {}

DMSCDSList::~DMSCDSList() { delete m_pImpl; }

int DMSCDSList::AddItem(void* item) {
    if (item == nullptr) return 1;
    m_pImpl->items.push_back(item);
    return 0;
}

void DMSCDSList::RemoveAllListItem(ItemDeleter deleter) {
    // Taken out first, so a deleter that looks at the list sees it empty.
    std::vector<void*> items;
    items.swap(m_pImpl->items);
    if (deleter != nullptr)
        for (void* item : items) deleter(item);
}

unsigned int DMSCDSList::GetNumberOfItems() const { return static_cast<unsigned int>(m_pImpl->items.size()); }

void* DMSCDSList::GetItemAt(unsigned int index) const {
    return index < m_pImpl->items.size() ? m_pImpl->items[index] : nullptr;
}
