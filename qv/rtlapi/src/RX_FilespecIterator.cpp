#include <qv/rtlapi/RX_FilespecIterator.hpp>

#include <cerrno>
#include <new>

#include <qv/rtlapi/RX_Wildcard.hpp>

RX_FilespecIterator::RX_FilespecIterator(const RX_Filespec& spec, qv_bool_t with_directory) : _glob()
{
    const RX_String directory = spec.directory();
    const RX_String pattern = spec.basename();
    if (with_directory) {
        _prefix = directory;
    }
    // Throws if the pattern is malformed, with the reason, which the function below does not report.
    const RX_Wildcard checked(pattern, RX_Wildcard::WILD);
    _status = qv_si_fileio_glob_construct(&_glob, directory.data(), pattern.data());
    if (_status == ENOMEM) {
        // Memory may have run out after some names were read.
        qv_si_fileio_glob_destruct(&_glob);
        throw std::bad_alloc();
    }
}

RX_FilespecIterator::~RX_FilespecIterator()
{
    qv_si_fileio_glob_destruct(&_glob);
}

qv_bool_t RX_FilespecIterator::next()
{
    const char* const name = qv_si_fileio_glob_next(&_glob);
    if (name == nullptr) {
        _current = RX_String::none;
        return 0;
    }
    _current = _prefix;
    _current += RX_String(name, RX_String::NPOS);
    return 1;
}
