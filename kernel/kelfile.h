#pragma once

#include "kernel/kelobject.h"
#include "kernel/kelstring.h"

namespace Ombrin {

/// Something that bytes are read from and written to. Not synchronised.
/// @ingroup kernel
class KEL_EXPORT CkelDevice : public CkelObject
{
public:
    /// What a device is opened for; the modes cannot be combined.
    enum OpenMode : int
    {
        NotOpen = 0,   ///< closed; open() refuses it
        ReadOnly = 1,  ///< from the beginning
        WriteOnly = 2, ///< made if missing, emptied if not
        Append = 4     ///< made if missing, written at its end
    };

    /// Closed at first. `parent` owns the device.
    explicit CkelDevice(CkelObject* parent = nullptr);
    ~CkelDevice() override;

    /// False, and still closed, when the device cannot be opened so or is open already.
    virtual bool open(OpenMode mode) = 0;

    /// Nothing happens when the device is closed.
    virtual void close() = 0;

    /// Everything from the current position to the end; what could be read when reading fails midway.
    virtual CkelByteArray readAll() = 0;

    /// False when not every byte could be written.
    virtual bool write(const CkelByteArray& bytes) = 0;

    /// What the device is open for.
    OpenMode openMode() const { return m_mode; }
    /// True between a successful open() and close().
    bool isOpen() const { return m_mode != NotOpen; }

protected:
    /// For the derived classes, from open() and close().
    void setOpenMode(OpenMode mode) { m_mode = mode; }

private:
    OpenMode m_mode = NotOpen;
};

/// A file. Closed by its destructor. Not synchronised.
///
/// @snippet classes.cpp CkelFile
///
/// @ingroup kernel
class KEL_EXPORT CkelFile : public CkelDevice
{
public:
    /// The file `name`, relative to the working directory at the time of open(). Opens nothing yet.
    explicit CkelFile(const CkelString& name, CkelObject* parent = nullptr);
    ~CkelFile() override;

    /// Whether something of that name exists, a folder included.
    static bool exists(const CkelString& name);

    /// The name given to the constructor.
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
