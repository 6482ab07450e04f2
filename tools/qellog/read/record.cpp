#include "record.h"

#include <functional>

namespace qellog {

Record& Record::operator=(const Record& other) {
    if (this != &other) {
        RecordFields::operator=(other);
        ownBytes();
    }
    return *this;
}

void Record::ownBytes() {
    const std::string_view borrowed = bytes;
    m_owned.assign(borrowed.data(), borrowed.size());
    bytes = m_owned;
    const auto within = std::less_equal<const char*>();
    for (std::string_view* text : {&header.module, &header.version, &header.time}) {
        if (within(borrowed.data(), text->data()) &&
            within(text->data() + text->size(), borrowed.data() + borrowed.size())) {
            *text = std::string_view(m_owned.data() + (text->data() - borrowed.data()),
                                     text->size());
        }
    }
}

}  // namespace qellog
