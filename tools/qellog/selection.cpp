#include "selection.h"

namespace qellog {

void Selection::window(std::uint64_t skip, std::uint64_t lines) {
    m_tailing = false;
    m_windowed = true;
    m_skip = skip;
    m_lines = lines;
}

void Selection::take(const Record& record) {
    if (!m_filter.matches(record)) return;
    if (m_windowed) {
        if (m_skip > 0) {
            --m_skip;
        } else if (m_lines > 0) {
            --m_lines;
            m_print(record);
        }
        return;
    }
    if (!m_tailing) {
        m_print(record);
        return;
    }
    if (m_lines == 0) return;
    if (m_kept.size() == m_lines) m_kept.pop_front();
    m_kept.push_back(record);
}

void Selection::endTail() {
    for (const Record& record : m_kept) m_print(record);
    m_kept.clear();
    m_tailing = false;
}

}  // namespace qellog
