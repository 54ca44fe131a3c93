// File pieces on a device: the piece store over the device's shared AFC
// service. Holding the service keeps the AFC connection open for as long
// as a transfer needs it.
#pragma once

#include "zeb_device.h"
#include "zeb_file_piece_store.h"

class AfcPieceStore : public FilePieceStore {
public:
    explicit AfcPieceStore(ServicePtr service) : service(std::move(service)) {}

    bool fileSize(const std::string& path, int64_t& size) override;
    FileStoreRef openRead(const std::string& path) override;
    FileStoreRef openWrite(const std::string& path) override;
    bool setFileSize(FileStoreRef file, uint64_t size) override;
    bool seek(FileStoreRef file, int64_t offset) override;
    uint32_t read(FileStoreRef file, void* buffer, uint32_t length) override;
    uint32_t write(FileStoreRef file, const void* buffer, uint32_t length) override;
    void close(FileStoreRef file) override;
    bool remove(const std::string& path) override;
    bool rename(const std::string& from, const std::string& to) override;

    AFCConnectionRef afc() const { return service->afc; }
    // The device link under the store broke: nothing more will pass on it.
    bool linkBroken() const { return service->linkBroken(); }

private:
    ServicePtr service;
};
