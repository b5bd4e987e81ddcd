#pragma once

#include <cstddef>
#include <new>

/// What the daemon must know of the framework's objects although their fields are the framework's own.
namespace QENFx {

/// Base of the objects that the framework makes and the daemon deletes. Only the framework knows how large they are, so
/// the size that the compiler would tell the allocator is left out.
class DeletedUnsized {
public:
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void operator delete(void* object) { ::operator delete(object); }
};

/// The fields of an object that the daemon makes, or derives from, and the framework's constructor fills. The stand-in
/// needs the pointer alone; the room behind it is there for a framework that keeps more. It is several times what such
/// an object can need, because one that is too small shows only as somebody else's memory overwritten.
template <typename Content, std::size_t Bytes>
struct alignas(std::max_align_t) Fields {
    Content* content;
    unsigned char room[Bytes - sizeof(Content*)];
};

}  // namespace QENFx
