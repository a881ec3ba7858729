#pragma once

#include "datastorage/kelabstractdatastorage.h"
#include "kernel/kelglobal.h"

namespace Ombrin {

/// Hands out the process's storages, one of each kind.
///
/// A storage is made at the first request for its kind, lives until the process ends, and is never destroyed by the
/// factory. Nothing here locks: make the first requests on one thread, before others use the storages. Request the
/// memory storage first on the thread whose event loop is to run its timer.
///
/// @snippet classes.cpp CkelDBStorageFactory
///
/// @ingroup datastorage
class KEL_EXPORT CkelDBStorageFactory
{
public:
    /// A factory of one's own hands out the same storages as instance() does.
    CkelDBStorageFactory() = default;
    ~CkelDBStorageFactory() = default;

    /// The process's factory, made at the first call.
    static CkelDBStorageFactory* instance();

    /// Destroys the factory, but none of the storages: a new instance() hands out the same ones.
    static void ruinInstance();

    /// The storage of a kind, or null for a kind that does not exist. The factory keeps it; do not delete it.
    CkelAbstractDataStorage* get(CkelAbstractDataStorage::DataOperatorType type);
    /// The same by number, a DataOperatorType; null for any other number.
    CkelAbstractDataStorage* get(int type);

private:
    static CkelDBStorageFactory* m_factory;
    static CkelAbstractDataStorage* f_dbstorage;
    static CkelAbstractDataStorage* m_dbstorage;
    static CkelAbstractDataStorage* sm_dbstorage;
};

} // namespace Ombrin
