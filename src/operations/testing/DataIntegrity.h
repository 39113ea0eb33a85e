// Writes a known pattern into test files of a partition, reads it back from the medium and
// compares it. Works by the file system: what the partition holds is not touched.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "devices/model/Partition.h"
#include "devices/queue/AlignedBuffer.h"
#include "frame/FileHandle.h"
#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"

namespace Morvu {

class DataIntegrity : public Function {
 public:
  // `partition` may be null. The constructor mounts the partition once nothing speaks against it,
  // and removes the files that a killed run has left; the destructor ends the mount.
  DataIntegrity(DeviceManagement::Device* device, const DeviceManagement::Partition* partition,
                bool full, ProgressReporter& reporter);
  ~DataIntegrity() override;

  void Initialize() override;
  std::int32_t Execute() override;

  // That were written, read back and found the same.
  std::uint64_t GetTestedBytes() const { return testedBytes_; }
  std::size_t GetFileCount() const { return sizes_.size(); }

  static StatusCode Runner(DeviceManagement::Device& device,
                           const DeviceManagement::Partition* partition, bool full, Face& face,
                           ProgressReporter& reporter);

 private:
  struct Rules;

  StatusCode Prepare();
  bool Test();
  bool WriteFiles(std::uint64_t target);
  bool CreateNext(FileHandle& file);
  bool WritePiece(const FileHandle& file, std::uint64_t offset, std::size_t size);
  bool EndFile(FileHandle& file);
  bool VerifyFiles();
  bool VerifyFile(std::size_t number, std::int32_t writePercent);
  FileHandle OpenForReading(const std::string& name, bool& isDirect);
  void DropFromCache(const FileHandle& file, std::uint64_t size);
  // The bytes read; fewer than `size` at the file's end and on a failure alone.
  std::size_t ReadPiece(const FileHandle& file, std::uint64_t offset, std::size_t size);
  // Puts what a file holds at a place into `data`.
  void FillPattern(std::uint64_t file, std::uint64_t offset, ByteSpan data) const;
  void Purge();
  bool Stop(StatusCode code, std::string_view line);
  bool Cancel();

  const DeviceManagement::Partition* partition_;
  bool full_;
  std::unique_ptr<DeviceManagement::PartitionMount> mount_;
  std::uint64_t run_;                 // this run's stamp
  std::vector<std::uint64_t> sizes_;  // of the files, as they were written
  std::uint64_t testedBytes_ = 0;
  bool isCacheTold_ = false;
  DeviceManagement::AlignedBuffer expected_, read_;
};

}  // namespace Morvu
