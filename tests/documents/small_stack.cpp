// What docs/footprint.md shows, which no example needs.

#include <pthread.h>

#include <cstddef>

void UseSmallStacks();

void UseSmallStacks()
{
    //! [stack]
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{64} * 1024);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
    //! [stack]
}
