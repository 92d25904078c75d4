/*
 * Objects in blocks of malloc: those that new would take come from the C++ library, which the platform does not need.
 */
#ifndef HOSTED_MADE_H
#define HOSTED_MADE_H

#include <cstdlib>

#include <memory>
#include <new>

namespace hosted {

/** Ends an object that Make has made. */
template <typename Type>
struct Unmake {
    void operator()(Type *object) const {
        object->~Type();
        free(object);
    }
};

template <typename Type>
using Made = std::unique_ptr<Type, Unmake<Type>>;

/** Makes an object; null when memory is short. */
template <typename Type>
Made<Type> Make() {
    void *const memory = malloc(sizeof(Type));
    return Made<Type>(memory != nullptr ? new (memory) Type() : nullptr);
}

}  // namespace hosted

#endif
