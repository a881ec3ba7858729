#pragma once

#include "kernel/kelobject.h"
#include "kernel/kelstring.h"

namespace Ombrin {

/// Something that bytes are read from and written to.
class KEL_EXPORT CkelDevice : public CkelObject
{
public:
    enum OpenMode : int
    {
        NotOpen = 0,
        ReadOnly = 1,
        WriteOnly = 2, ///< made if missing, emptied if not
        Append = 4     ///< made if missing, written at its end
    };

    explicit CkelDevice(CkelObject* parent = nullptr);
    ~CkelDevice() override;

    /// False, and still closed, when the device cannot be opened so or is open already.
    virtual bool open(OpenMode mode) = 0;
    virtual void close() = 0;

    /// Everything from the current position to the end; what could be read when reading fails midway.
    virtual CkelByteArray readAll() = 0;

    /// False when not every byte could be written.
    virtual bool write(const CkelByteArray& bytes) = 0;

    OpenMode openMode() const { return m_mode; }
    bool isOpen() const { return m_mode != NotOpen; }

protected:
    void setOpenMode(OpenMode mode) { m_mode = mode; }

private:
    OpenMode m_mode = NotOpen;
};

/// A file. Closed by its destructor. Not synchronised.
class KEL_EXPORT CkelFile : public CkelDevice
{
public:
    explicit CkelFile(const CkelString& name, CkelObject* parent = nullptr);
    ~CkelFile() override;

    /// Whether something of that name exists, a folder included.
    static bool exists(const CkelString& name);

    const CkelString& fileName() const { return m_name; }

    /// False too for a folder.
    bool open(OpenMode mode) override;
    void close() override;
    CkelByteArray readAll() override;
    bool write(const CkelByteArray& bytes) override;

private:
    const CkelString m_name;
    int m_descriptor = -1;
};

} // namespace Ombrin
