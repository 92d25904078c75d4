// Any bytes as a file image: whatever loads is found by its keys, and written and loaded again it is the same.
#include "support.h"

void Fuzz(FuzzedDataProvider *input) {
    uint32_t code = 0;
    const auto [image, refer] = TakeImage(input);
    AssertSound(Parse(image, refer, &code), Scratch("image.dat"), refer);
}
