// Files of several groups and values.

#include "Files.h"

#include <memory>
#include <string>

#include "Errors.h"
#include "Groups.h"
#include "TnRobotKernel/tn/detail/Waiting.h"
#include "TnRobotKernel/tn/group_files.h"
#include "Values.h"

namespace tnrobot::python {

namespace {

// A writer or reader of the library, until it is closed.
template <typename File>
class OpenFile final : public Bound {
public:
    explicit OpenFile(const py::object& path) : m_strPath(PathOf(path)) {
        {
            const WithoutGil others;
            m_file = std::make_unique<File>(m_strPath.c_str());
        }
        Check(m_file->Reason(), m_strPath);
    }

    // Calls a function of the file, without the interpreter's lock, and raises its reason.
    template <typename Call>
    void Use(Call call) {
        bool bOpen = false;
        std::error_code reason;
        RunLocked(m_mutex, [&] {
            bOpen = IsOpen();
            if (bOpen) {
                call(*m_file, reason);
            }
        });
        if (!bOpen) {
            Raise(PyExc_ValueError, "I/O operation on closed file");
        }
        Check(reason, m_strPath);
    }

    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() { LetGo(); }

    void Close() {
        RunLocked(m_mutex, [this] { LetGo(); });
    }

    bool IsClosed() {
        const Locked lock(m_mutex);
        return !IsOpen();
    }

private:
    bool IsOpen() const { return m_file != nullptr && m_home.IsHere(); }

    // What a child of fork has inherited is the parent's: a writer's end would write what waits in its buffer, and
    // remove the unfinished file.
    void LetGo() {
        if (m_home.IsHere()) {
            m_file.reset();
        } else {
            static_cast<void>(m_file.release());
        }
    }

    tn::detail::Home m_home;
    ObjectMutex m_mutex;
    std::string m_strPath;         // not read where __init__ was never called: such a file is closed
    std::unique_ptr<File> m_file;  // guarded by m_mutex
};

using Writer = OpenFile<tn::GroupFileWriter>;
using Reader = OpenFile<tn::GroupFileReader>;

void WriteGroup(Writer& writer, const Group& group) {
    group.Get();
    // A copy, so that the two mutexes are not held together.
    const TnRobotPtr<ITnRobotDataValueGroup> copy =
        RunLocked(group.Mutex(), [&] { return tn::Adopt(group.Get().Clone()); });
    if (!copy) {
        throw std::bad_alloc();
    }
    writer.Use([&](tn::GroupFileWriter& file, std::error_code& reason) { file.Write(*copy, reason); });
}

void WriteValue(Writer& writer, const py::object& object, const py::object& type) {
    const TnRobotPtr<ITnRobotDataValue> value = MakeValue(object, type);
    writer.Use([&](tn::GroupFileWriter& file, std::error_code& reason) { file.Write(*value, reason); });
}

void Save(Writer& writer, bool bSynced) {
    writer.Use([&](tn::GroupFileWriter& file, std::error_code& reason) {
        file.Save(bSynced ? tn::Durability::kSynced : tn::Durability::kFlushed, reason);
    });
}

// @return whether there was one; the end of the file is no failure.
template <typename Call>
bool ReadNext(Reader& reader, Call call) {
    bool bRead = false;
    reader.Use([&](tn::GroupFileReader& file, std::error_code& reason) {
        bRead = call(file, reason);
        if (reason == tn::errc::end_of_file) {
            reason.clear();
        }
    });
    return bRead;
}

bool ReadGroup(Reader& reader, Group& group) {
    group.Get();
    TnRobotPtr<ITnRobotDataValueGroup> loaded;
    const bool bRead = ReadNext(reader, [&](tn::GroupFileReader& file, std::error_code& reason) {
        loaded = file.ReadGroup(reason);
        return static_cast<bool>(loaded);
    });
    if (bRead) {
        group.Replace(std::move(loaded));
    }
    return bRead;
}

// @return (value, type), or None at the end.
py::object ReadValue(Reader& reader) {
    TnRobotPtr<ITnRobotDataValue> value;
    const bool bRead = ReadNext(reader, [&](tn::GroupFileReader& file, std::error_code& reason) {
        value = file.ReadValue(reason);
        return static_cast<bool>(value);
    });
    if (!bRead) {
        return py::none();
    }
    return py::make_tuple(FromValue(*value), Enumerator("ValueType", value->GetDataValueType()));
}

}  // namespace

void BindFiles(py::module_& module) {
    py::class_<Writer>(module, "GroupFileWriter", "What is below tnrobotkernel.GroupFileWriter.")
        .def(py::init<py::object>(), py::arg("path"))
        .def("_write_group", &WriteGroup, py::arg("group"))
        .def("_write_value", &WriteValue, py::arg("value"), py::arg("type"))
        .def("_save", &Save, py::arg("synced"))
        .def("close", &Writer::Close, "End the writing. What was not saved is gone, and the old file stays.")
        .def_property_readonly("closed", &Writer::IsClosed, "Whether the file is closed.");
    py::class_<Reader>(module, "GroupFileReader", "What is below tnrobotkernel.GroupFileReader.")
        .def(py::init<py::object>(), py::arg("path"))
        .def("_read_group", &ReadGroup, py::arg("group"))
        .def("_read_value", &ReadValue)
        .def("close", &Reader::Close, "Close the file.")
        .def_property_readonly("closed", &Reader::IsClosed, "Whether the file is closed.");
}

}  // namespace tnrobot::python
