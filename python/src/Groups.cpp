// The mapping that a group is, and its bytes.

#include "Groups.h"

#include <exception>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "BytesFile.h"
#include "Errors.h"
#include "TnRobotKernel/tn/group_files.h"
#include "TnRobotKernel/tn/groups.h"
#include "Values.h"

namespace tnrobot::python {

namespace {

using Names = std::vector<std::pair<std::string, ETnRobotDataValueType>>;

[[noreturn]] void RaiseMissing(py::handle name) {
    PyErr_SetObject(PyExc_KeyError, name.ptr());
    throw py::error_already_set();
}

// Names that can be asked for; an empty one, which only C++ can store, cannot.
Names NamesOf(const Group& group) {
    Names names;
    {
        const Locked lock(group.Mutex());
        group.Get().GetAllDataName(names);
    }
    for (auto it = names.begin(); it != names.end(); ++it) {
        if (it->first.empty()) {
            names.erase(it);
            break;
        }
    }
    return names;
}

// Names and values of one moment. The values never change: who stores another one puts it in their place.
std::vector<std::pair<std::string, TnRobotPtr<ITnRobotDataValue>>> ItemsOf(const Group& group) {
    std::vector<std::pair<std::string, TnRobotPtr<ITnRobotDataValue>>> items;
    Names names;
    const Locked lock(group.Mutex());
    group.Get().GetAllDataName(names);
    for (auto& [strName, eType] : names) {
        TnRobotPtr<ITnRobotDataValue> value;
        if (group.Get().GetValue(strName.c_str(), value.put()) == 0 && value) {
            items.emplace_back(std::move(strName), std::move(value));
        }
    }
    return items;
}

py::list ListItems(const Group& group) {
    py::list list;
    for (const auto& [strName, value] : ItemsOf(group)) {
        list.append(py::make_tuple(TextFrom(strName.data(), strName.size()), FromValue(*value),
                                   static_cast<int>(value->GetDataValueType())));
    }
    return list;
}

py::object GetItem(const Group& group, const py::object& name) {
    bool bValid = false;
    const std::string strName = NameOf(name, bValid);
    if (bValid) {
        const Locked lock(group.Mutex());
        TnRobotPtr<ITnRobotDataValue> value;
        if (group.Get().GetValue(strName.c_str(), value.put()) == 0 && value) {
            return FromValue(*value);
        }
    }
    RaiseMissing(name);
}

void Set(const Group& group, const py::object& name, const py::object& object, const py::object& type) {
    bool bValid = false;
    const std::string strName = NameOf(name, bValid);
    if (!bValid) {
        Raise(PyExc_ValueError, "a name has at least one character, and no zero");
    }
    const TnRobotPtr<ITnRobotDataValue> value = MakeValue(object, type);
    const Locked lock(group.Mutex());
    group.Get().SetValue(strName.c_str(), value.get());
}

void DeleteItem(const Group& group, const py::object& name) {
    bool bValid = false;
    const std::string strName = NameOf(name, bValid);
    bool bRemoved = false;
    if (bValid) {
        const Locked lock(group.Mutex());
        bRemoved = group.Get().RemoveValue(strName.c_str()) == 0;
    }
    if (!bRemoved) {
        RaiseMissing(name);
    }
}

py::object Pop(const Group& group, const py::object& name) {
    bool bValid = false;
    const std::string strName = NameOf(name, bValid);
    TnRobotPtr<ITnRobotDataValue> value;
    if (bValid) {
        const Locked lock(group.Mutex());
        if (group.Get().GetValue(strName.c_str(), value.put()) == 0) {
            group.Get().RemoveValue(strName.c_str());
        }
    }
    if (!value) {
        RaiseMissing(name);
    }
    return FromValue(*value);
}

// @return what is there afterwards.
py::object SetDefault(const Group& group, const py::object& name, const py::object& object) {
    bool bValid = false;
    const std::string strName = NameOf(name, bValid);
    if (!bValid) {
        Raise(PyExc_ValueError, "a name has at least one character, and no zero");
    }
    TnRobotPtr<ITnRobotDataValue> value;
    {
        const Locked lock(group.Mutex());
        group.Get().GetValue(strName.c_str(), value.put());
    }
    if (!value) {
        const TnRobotPtr<ITnRobotDataValue> made = MakeValue(object, py::none());
        const Locked lock(group.Mutex());
        if (group.Get().GetValue(strName.c_str(), value.put()) != 0) {
            value = made;
            group.Get().SetValue(strName.c_str(), value.get());
        }
    }
    return FromValue(*value);
}

bool Contains(const Group& group, const py::object& name) {
    bool bValid = false;
    if (PyUnicode_Check(name.ptr()) == 0) {
        return false;
    }
    const std::string strName = NameOf(name, bValid);
    const Locked lock(group.Mutex());
    return group.Get().HasValue(strName.c_str()) && bValid;
}

py::object TypeOf(const Group& group, const py::object& name) {
    bool bValid = false;
    const std::string strName = NameOf(name, bValid);
    ETnRobotDataValueType eType = DATA_TYPE_NONE;
    bool bFound = false;
    if (bValid) {
        const Locked lock(group.Mutex());
        bFound = group.Get().HasValue(strName.c_str());
        eType = group.Get().GetDataValueType(strName.c_str());
    }
    if (!bFound) {
        RaiseMissing(name);
    }
    return Enumerator("ValueType", eType);
}

py::list ListNames(const Group& group) {
    py::list list;
    for (const auto& [strName, eType] : NamesOf(group)) {
        list.append(TextFrom(strName.data(), strName.size()));
    }
    return list;
}

void Clear(const Group& group) {
    const Locked lock(group.Mutex());
    group.Get().ClearAllValues();
}

// Two groups are locked one after the other: two threads that copy them onto each other would meet.
void CopyFrom(Group& group, const Group& source) {
    group.Get();
    TnRobotPtr<ITnRobotDataValueGroup> copy =
        RunLocked(source.Mutex(), [&] { return tn::Adopt(source.Get().Clone()); });
    group.Replace(std::move(copy));
}

void SaveFile(const Group& group, const py::object& path, bool bSynced) {
    const std::string strPath = PathOf(path);
    const tn::Durability eDurability = bSynced ? tn::Durability::kSynced : tn::Durability::kFlushed;
    group.Get();
    std::error_code reason;
    RunLocked(group.Mutex(), [&] { tn::SaveTo(strPath.c_str(), group.Get(), eDurability, reason); });
    Check(reason, strPath);
}

void LoadFile(Group& group, const py::object& path) {
    const std::string strPath = PathOf(path);
    group.Get();
    TnRobotPtr<ITnRobotDataValueGroup> loaded = NewGroup();
    std::error_code reason;
    {
        const WithoutGil others;
        tn::LoadFrom(strPath.c_str(), *loaded, reason);
    }
    Check(reason, strPath);
    group.Replace(std::move(loaded));
}

py::bytes ToBytes(const Group& group) {
    group.Get();
    const auto file = tn::MakeObject<BytesWriter>();
    std::error_code reason;
    RunLocked(group.Mutex(), [&] {
        const TnRobotPtr<ITnRobotArchive> archive = tn::detail::NewArchive();
        archive->Attach(file.get(), true);
        const auto saving = tn::MakeObject<tn::detail::SavingArchive>(*archive, file.get());
        reason = tn::detail::Store(*saving, *file, group.Get());
    });
    Check(reason);
    return {file->Bytes().data(), file->Bytes().size()};
}

// Bytes that stay as they are: those of a buffer are copied, since other threads may change what it holds, or how
// long it is.
py::bytes StillBytes(const py::object& data) {
    if (PyBytes_Check(data.ptr()) != 0) {
        return py::reinterpret_borrow<py::bytes>(data);
    }
    Py_buffer view{};
    if (PyObject_GetBuffer(data.ptr(), &view, PyBUF_SIMPLE) != 0) {
        throw py::error_already_set();
    }
    PyObject* pCopy = PyBytes_FromStringAndSize(static_cast<const char*>(view.buf), view.len);
    PyBuffer_Release(&view);
    if (pCopy == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::bytes>(pCopy);
}

// Reads the group that begins at a place of some bytes. @return where the group ends.
std::size_t LoadBytes(Group& group, const py::object& data, std::size_t nBegin) {
    group.Get();
    const py::bytes bytes = StillBytes(data);
    const auto nAll = static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr()));
    const std::size_t nFirst = std::min(nBegin, nAll);
    TnRobotPtr<ITnRobotDataValueGroup> loaded = NewGroup();
    const auto file = tn::MakeObject<BytesReader>(PyBytes_AS_STRING(bytes.ptr()) + nFirst, nAll - nFirst);
    std::error_code reason;
    {
        const WithoutGil others;
        const TnRobotPtr<ITnRobotArchive> archive = tn::detail::NewArchive();
        archive->Attach(file.get(), false);
        const auto loading = tn::MakeObject<tn::detail::LoadingArchive>(*archive, file.get(), *loaded);
        reason = tn::detail::Fetch(*loading, *file, *loaded);
    }
    Check(reason);
    group.Replace(std::move(loaded));
    return nBegin + file->Position();
}

// What is used most often goes past pybind11, which would take longer than the group.

// The group of a Python object. ValueError where its __init__ was never called.
const Group& GroupOf(PyObject* pSelf) {
    auto* pInstance = reinterpret_cast<py::detail::instance*>(pSelf);
    // A class with another one of ours among its bases holds several, and the group may not be the first.
    static const auto* const s_pType = py::detail::get_type_info(typeid(Group));
    const auto* pType = pInstance->simple_layout ? nullptr : s_pType;
    const auto* pGroup = static_cast<const Group*>(pInstance->get_value_and_holder(pType).value_ptr());
    if (pGroup == nullptr) {
        throw py::value_error("this group has no content: its __init__ was never called");
    }
    return *pGroup;
}

// Calls a function, and leaves its exception for Python.
template <typename Result, typename Call>
Result Guarded(Result failed, Call call) {
    try {
        return call();
    } catch (py::error_already_set& error) {
        error.restore();
    } catch (const py::builtin_exception& error) {
        error.set_error();
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (const std::exception& failure) {
        PyErr_SetString(PyExc_RuntimeError, failure.what());
    }
    return failed;
}

py::object Borrow(PyObject* pObject) {
    return py::reinterpret_borrow<py::object>(pObject);
}

PyObject* Subscript(PyObject* pSelf, PyObject* pName) {
    return Guarded<PyObject*>(nullptr, [=] { return GetItem(GroupOf(pSelf), Borrow(pName)).release().ptr(); });
}

int AssignSubscript(PyObject* pSelf, PyObject* pName, PyObject* pValue) {
    return Guarded(-1, [=] {
        if (pValue == nullptr) {
            DeleteItem(GroupOf(pSelf), Borrow(pName));
        } else {
            Set(GroupOf(pSelf), Borrow(pName), Borrow(pValue), py::none());
        }
        return 0;
    });
}

Py_ssize_t Length(PyObject* pSelf) {
    return Guarded<Py_ssize_t>(-1, [=] { return static_cast<Py_ssize_t>(NamesOf(GroupOf(pSelf)).size()); });
}

int ContainsName(PyObject* pSelf, PyObject* pName) {
    return Guarded(-1, [=] { return Contains(GroupOf(pSelf), Borrow(pName)) ? 1 : 0; });
}

void SetMapping(PyHeapTypeObject* pType) {
    pType->as_mapping.mp_subscript = &Subscript;
    pType->as_mapping.mp_ass_subscript = &AssignSubscript;
    pType->as_mapping.mp_length = &Length;
    pType->as_sequence.sq_contains = &ContainsName;
}

}  // namespace

Group::Group() : m_group(NewGroup()) {}

ITnRobotDataValueGroup& Group::Get() const {
    if (!m_group) {
        throw py::value_error("this group has no content: its __init__ was never called");
    }
    return *m_group;
}

void Group::Replace(TnRobotPtr<ITnRobotDataValueGroup> group) {
    {
        const Locked lock(m_mutex);
        std::swap(m_group, group);
    }
}

TnRobotPtr<ITnRobotDataValueGroup> NewGroup() {
    TnRobotPtr<ITnRobotDataValueGroup> group;
    if (TnCreateRobotValueDataGroup(group.put()) != 1 || !group) {
        throw std::bad_alloc();
    }
    return group;
}

void BindGroups(py::module_& module) {
    py::class_<Group>(module, "Group", py::custom_type_setup(&SetMapping), "What is below tnrobotkernel.Group.")
        .def(py::init<>())
        .def("_set", &Set, py::arg("name"), py::arg("value"), py::arg("type"))
        .def("_type", &TypeOf, py::arg("name"))
        .def("_names", &ListNames)
        .def("_items", &ListItems)
        .def("_pop", &Pop, py::arg("name"))
        .def("_set_default", &SetDefault, py::arg("name"), py::arg("value"))
        .def("_clear", &Clear)
        .def("_copy_from", &CopyFrom, py::arg("source"))
        .def("_save_file", &SaveFile, py::arg("path"), py::arg("synced"))
        .def("_load_file", &LoadFile, py::arg("path"))
        .def("_to_bytes", &ToBytes)
        .def("_load_bytes", &LoadBytes, py::arg("data"), py::arg("begin"));
}

}  // namespace tnrobot::python
