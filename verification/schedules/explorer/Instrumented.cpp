// What code that was compiled with -fsanitize=thread calls, in place of that sanitizer's run-time
// library: each access to memory is checked by Memory.cpp. The links between a map's nodes are
// changed and followed inside the C++ library, which is not instrumented: its functions for that
// are defined here, too.

#include <dlfcn.h>

#include <cstddef>
#include <map>

#include "Scheduler.h"

namespace {

void Access(const void* address, std::size_t size, bool writes)
{
    if (EXPLORER::MEMORY::tracked) {
        EXPLORER::MEMORY::Access(address, size, writes);
    }
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier, bugprone-macro-parentheses): the compiler's names
#define EXPLORER_ACCESSES(size)                           \
    void __tsan_read##size(const void* address)           \
    {                                                     \
        Access(address, size, false);                     \
    }                                                     \
    void __tsan_write##size(void* address)                \
    {                                                     \
        Access(address, size, true);                      \
    }                                                     \
    void __tsan_unaligned_read##size(const void* address) \
    {                                                     \
        Access(address, size, false);                     \
    }                                                     \
    void __tsan_unaligned_write##size(void* address)      \
    {                                                     \
        Access(address, size, true);                      \
    }

extern "C" {

EXPLORER_ACCESSES(1)
EXPLORER_ACCESSES(2)
EXPLORER_ACCESSES(4)
EXPLORER_ACCESSES(8)
EXPLORER_ACCESSES(16)

void __tsan_read_range(const void* address, std::size_t size)
{
    Access(address, size, false);
}
void __tsan_write_range(void* address, std::size_t size)
{
    Access(address, size, true);
}
void __tsan_vptr_update(void** address, const void*)
{
    Access(address, sizeof(void*), true);
}
void __tsan_vptr_read(const void* const* address)
{
    Access(address, sizeof(void*), false);
}
void __tsan_func_entry(const void*) {}
void __tsan_func_exit() {}
void __tsan_init() {}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier, bugprone-macro-parentheses)

using Node = std::_Rb_tree_node_base;

namespace {

template <typename Function>
Function* Next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// The library's own.
const auto increment = Next<Node*(Node*)>("_ZSt18_Rb_tree_incrementPSt18_Rb_tree_node_base");
const auto insert = Next<void(bool, Node*, Node*, Node&)>(
    "_ZSt29_Rb_tree_insert_and_rebalancebPSt18_Rb_tree_node_baseS0_RS_");
const auto erase =
    Next<Node*(Node*, Node&)>("_ZSt28_Rb_tree_rebalance_for_erasePSt18_Rb_tree_node_baseRS_");

void AccessNode(const Node* node, bool writes)
{
    if (node != nullptr) {
        Access(node, sizeof *node, writes);
    }
}

}  // namespace

namespace std {

_GLIBCXX_PURE Node* _Rb_tree_increment(Node* node) noexcept
{
    AccessNode(node, false);
    return increment(node);
}

_GLIBCXX_PURE const Node* _Rb_tree_increment(const Node* node) noexcept
{
    return _Rb_tree_increment(const_cast<Node*>(node));
}

void _Rb_tree_insert_and_rebalance(const bool left, Node* node, Node* parent, Node& header) noexcept
{
    AccessNode(parent, true);
    AccessNode(&header, true);
    insert(left, node, parent, header);
}

Node* _Rb_tree_rebalance_for_erase(Node* const node, Node& header) noexcept
{
    for (const Node* const changed :
         {const_cast<const Node*>(node), const_cast<const Node*>(node->_M_parent),
          const_cast<const Node*>(node->_M_left), const_cast<const Node*>(node->_M_right),
          const_cast<const Node*>(&header)}) {
        AccessNode(changed, true);
    }
    return erase(node, header);
}

}  // namespace std
