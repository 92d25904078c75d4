// The file image: checked, parsed, rebuilt, and taken through a file.
#include "support.h"

void Fuzz(FuzzedDataProvider *input) {
    uint32_t code = 0;
    const auto [image, refer] = TakeImage(input);
    AssertSound(Parse(image, refer, &code), Scratch("image.dat"), refer);
}
