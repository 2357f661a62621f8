// What is wrong with a file, or worth knowing about it.

#ifndef TNROBOT_INSPECT_PROBLEMS_H_
#define TNROBOT_INSPECT_PROBLEMS_H_

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

struct Problem {
    bool bDamage;         ///< the file is damaged; otherwise the text is a note
    std::size_t nOffset;  ///< where in the file
    std::string strText;
};

/// Keeps the first kMost problems and counts the others.
class Problems {
public:
    static constexpr std::size_t kMost = 1000;

    void Damage(std::size_t nOffset, std::string strText) {
        m_bDamaged = true;
        Add({true, nOffset, std::move(strText)});
    }
    void Note(std::size_t nOffset, std::string strText) { Add({false, nOffset, std::move(strText)}); }

    const std::vector<Problem>& All() const { return m_all; }
    std::size_t More() const { return m_nMore; }
    bool IsDamaged() const { return m_bDamaged; }

private:
    void Add(Problem problem) {
        if (m_all.size() < kMost) {
            m_all.push_back(std::move(problem));
        } else {
            ++m_nMore;
        }
    }

    std::vector<Problem> m_all;
    std::size_t m_nMore = 0;
    bool m_bDamaged = false;
};

#endif  // TNROBOT_INSPECT_PROBLEMS_H_
