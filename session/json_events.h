/*
 * JSON read as events, without a tree. A reader overrides what it knows; everything else is refused.
 */
#ifndef SESSION_JSON_EVENTS_H
#define SESSION_JSON_EVENTS_H

#include <cstdint>
#include <string>
#include <string_view>

namespace session {

/** A scalar that stands in JSON. */
struct Scalar {
    enum class Type : uint8_t { kNumber, kString, kOther };  // a number is a whole one from 0 on
    Type type = Type::kOther;
    uint64_t number = 0;
    std::string text;  // of a string; of kOther as JSON has it

    /** For messages. */
    std::string ToText() const;
};

/** What a JSON text holds, in its order. What overrides may throw, which ends the reading. */
class JsonEvents {
  public:
    virtual ~JsonEvents() = default;

    /** Reads a text. Throws Problem, with line and column, for what is no JSON. */
    void Read(std::string_view text);

    /** A scalar, which lives until the next event. */
    virtual void Take(const Scalar &scalar) = 0;
    virtual void TakeKey(const std::string &name) = 0;
    virtual void BeginObject() = 0;
    virtual void EndObject() = 0;
    virtual void BeginArray() = 0;
    virtual void EndArray() = 0;
};

}  // namespace session

#endif
