// Takes a saved graph apart into its objects and changes their edges, classes and names; the tables, the
// indexes and the places where objects are written in full follow.

#include <map>

#include "FuzzMutator.h"
#include "archive/ArchiveTables.h"

using namespace tnfuzz;

namespace {

constexpr std::size_t kMostObjects = 64;
constexpr int kNone = -1;  // a null, where a node or a root is expected

const std::string kNodeClass = "00000000-0000-0000-0000-00000000000a";
const std::string kOtherClasses[] = {"00000000-0000-0000-0000-00000000000b", "00000000-0000-0000-0000-00000000000c",
                                     "unknown"};

// Objects that are no nodes have neither a name nor others.
struct Object {
    std::string strClass;
    Bytes name;
    int others[2] = {kNone, kNone};
};

struct Graph {
    std::vector<Object> objects;  // as they are numbered in the file, then those that are new
    std::vector<int> roots;
};

// Reads the records behind the tables. @return whether they are what the tables say.
class GraphReader {
public:
    GraphReader(FuzzInput& input, Graph& graph) : m_input(input), m_graph(graph) {}

    bool ReadAll() {
        ArchiveTables tables;
        if (!ReadTables(m_input, tables) || tables.objects.size() > kMostObjects) {
            return false;
        }
        for (const tntest::SavedObject& object : tables.objects) {
            const bool bKnown = object.nClass < tables.classes.size();
            m_graph.objects.push_back({bKnown ? tables.classes[object.nClass] : std::string(), {}, {kNone, kNone}});
        }
        while (m_bOk && m_input.Left() != 0 && m_graph.roots.size() < kMostObjects) {
            m_graph.roots.push_back(ReadRecord(0));
        }
        return m_bOk;
    }

private:
    int ReadRecord(unsigned int nDepth) {
        if (!m_bOk || m_input.Number<std::uint8_t>() == 0) {
            return kNone;
        }
        const bool bNew = m_input.Number<std::uint8_t>() != 0;
        const std::size_t nIndex = m_input.Number<std::uint16_t>();
        m_bOk = nIndex < m_graph.objects.size() && nDepth < kMostObjects;
        if (m_bOk && bNew && m_graph.objects[nIndex].strClass == kNodeClass) {
            const auto nLength = m_input.Number<std::uint32_t>();
            m_bOk = nLength <= m_input.Left();
            m_graph.objects[nIndex].name = m_input.Take(nLength);
            for (int& nOther : m_graph.objects[nIndex].others) {
                nOther = ReadRecord(nDepth + 1);
            }
        }
        return m_bOk ? static_cast<int>(nIndex) : kNone;
    }

    FuzzInput& m_input;
    Graph& m_graph;
    bool m_bOk = true;
};

// Writes an object in full where it comes first. Objects are numbered, and classes too, as they come.
class GraphWriter {
public:
    explicit GraphWriter(const Graph& graph) : m_graph(graph) {}

    Bytes Saved() {
        for (const int nRoot : m_graph.roots) {
            WriteRecord(nRoot);
        }
        return m_tables.Saved() + m_records;
    }

private:
    void WriteRecord(int nObject) {
        if (nObject == kNone) {
            m_records += tntest::U8(0);
            return;
        }
        const auto [itNumber, bNew] = m_numbers.insert({nObject, static_cast<unsigned int>(m_numbers.size())});
        m_records += tntest::ObjectRecord(bNew, itNumber->second);
        if (bNew) {
            WriteContent(m_graph.objects[static_cast<std::size_t>(nObject)]);
        }
    }

    void WriteContent(const Object& object) {
        const auto itClass = std::find(m_tables.classes.begin(), m_tables.classes.end(), object.strClass);
        const auto nClass = static_cast<unsigned int>(itClass - m_tables.classes.begin());
        if (itClass == m_tables.classes.end()) {
            m_tables.classes.push_back(object.strClass);
        }
        m_tables.objects.push_back({m_tables.objects.size() + 1, nClass});
        if (object.strClass == kNodeClass) {
            m_records += tntest::U32(static_cast<std::uint32_t>(object.name.size()));
            m_records += object.name;
            for (const int nOther : object.others) {
                WriteRecord(nOther);
            }
        }
    }

    const Graph& m_graph;
    std::map<int, unsigned int> m_numbers;
    ArchiveTables m_tables;
    Bytes m_records;
};

// An object that there is, a new node, or none.
int AnyObject(Graph& graph, Choice& choice) {
    if (choice.OneIn(5)) {
        return kNone;
    }
    if (graph.objects.empty() || (choice.OneIn(3) && graph.objects.size() < kMostObjects)) {
        graph.objects.push_back({kNodeClass, {}, {kNone, kNone}});
        return static_cast<int>(graph.objects.size()) - 1;
    }
    return static_cast<int>(choice.Below(graph.objects.size()));
}

void MutateObject(Graph& graph, Choice& choice) {
    const int nOther = AnyObject(graph, choice);
    Object& object = graph.objects[choice.Below(graph.objects.size())];
    if (choice.OneIn(4)) {
        object.strClass = choice.OneIn(2) ? kNodeClass : kOtherClasses[choice.Below(std::size(kOtherClasses))];
    } else if (choice.OneIn(4)) {
        MutateBehind(object.name, 0, 4);
    } else {
        object.others[choice.Below(2)] = nOther;
    }
}

Bytes MutateGraph(const Bytes& bytes, Choice& choice) {
    FuzzInput input(bytes.data(), bytes.size());
    Graph graph;
    if (!GraphReader(input, graph).ReadAll()) {
        return {};
    }
    switch (choice.Below(4)) {
        case 0:
            Rearrange(graph.roots, choice);
            break;
        case 1:
            graph.roots.insert(graph.roots.begin() + static_cast<std::ptrdiff_t>(choice.Below(graph.roots.size() + 1)),
                               AnyObject(graph, choice));
            break;
        default:
            if (!graph.objects.empty()) {
                MutateObject(graph, choice);
            }
    }
    return GraphWriter(graph).Saved();
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* pData, std::size_t nSize, std::size_t nMaxSize,
                                               unsigned int nSeed) {
    return MutateByFormat(pData, nSize, nMaxSize, nSeed, MutateGraph);
}
