// What a computation is asked to do: the settings that the command line, a menu or a file fills in.
//
// ComputeParameters is shared by both modes; RamParameters and SwapParameters add what is their own.
// ModeHolder keeps one of each and a current one, so that a change of mode carries the shared settings
// across.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "arrays/bytes_per_seek.h"
#include "arrays/raid_descriptor.h"
#include "config/object.h"
#include "memory/allocators.h"
#include "session/constant.h"
#include "threads/parallelism.h"

namespace orvane {

/// Digits asked for plus guard digits, and how many words hold them.
struct Precision {
  u64 digits = 0;
  /// Words of the number objects, integer part included.
  u64 words() const;
};

/// Guard digits beyond what is written; they are computed and dropped.
inline constexpr u64 kGuardDigits = 100;
inline constexpr u64 kMinDecimalDigits = 100;
inline constexpr const char* kTooFewDigits = "Computation size must be at least 100 decimal digits.";
inline constexpr u64 kOneFile = ~u64{0};  ///< digits per file: one compressed file for the whole stream

/// Empty when so many bytes of memory are available; else what is missing, in three lines.
std::string memory_refusal(u64 needed_bytes);

/// Hexadecimal digits that `decimal_digits` decimal ones determine, rounded down.
u64 hexadecimal_equivalent(u64 decimal_digits);

/// How digit files are written, in words.
std::string format_text(u64 digits_per_file);
/// The folder of digit files as it is shown: "Default Path" where none is set.
std::string path_text(const std::string& path);

class ComputeParameters {
 public:
  ComputeParameters();
  virtual ~ComputeParameters() = default;

  const Constant& constant() const { return *constant_; }
  Constant& constant() { return *constant_; }
  /// Takes a new constant and derives its precision.
  void set_constant(std::unique_ptr<Constant> constant);

  u64 decimal_digits() const { return decimal_digits_; }
  u64 hexadecimal_digits() const { return hexadecimal_digits_; }
  /// Throws InvalidParametersException "Computation size must be at least 100 decimal digits." or
  /// "Computation size cannot be larger than ... decimal digits."; 0 hexadecimal digits turn that output off.
  void set_decimal_digits(u64 digits);
  void set_hexadecimal_digits(u64 digits);
  const Precision& precision() const { return precision_; }

  /// The file-size rule: takes `digits`, or warns and keeps the old value.
  void request_digits_per_file(u64 digits);
  /// Looks at the last request again, now that all digit counts are known.
  void settle_digits_per_file();
  u64 digits_per_file() const { return digits_per_file_; }

  /// Throws InvalidParametersException for an unknown key.
  void set_allocator(const std::string& key) { allocator = orl::create_allocator(key); }
  /// A folder that is missing is made when a run begins. Throws InvalidParametersException "Path is not writable." and the
  /// reason.
  void set_output_path(const std::string& path);
  const std::string& output_path() const { return output_path_; }

  /// Empty when this version can run the constant in this mode; else one line that says what it cannot.
  virtual std::string unavailable() const { return constant_->unavailable(); }
  /// True if the run may go on; prints the warnings that it has. Throws when the computation is impossible.
  virtual bool check_parameters() = 0;
  /// Carries the computation through. Returns the status of the process.
  virtual int run(int reserved) = 0;
  virtual const char* mode_name() const = 0;
  /// "ram" or "swap".
  virtual const char* mode_key() const = 0;

  /// The object `CustomCompute` of an action file, and its reader: a key that is absent leaves the default,
  /// of the constant's keys only `Algorithm` may be absent. Throws ConfigException with line and key for
  /// everything that the command line would refuse, and for unknown keys; a part has been taken then.
  orl::Object to_object() const;
  void from_object(const orl::Object& object);
  /// The settings with texts for their readers, and the memory that the run needs: for reports.
  orl::Object configuration_dump() const;
  /// Bytes of memory that the run takes. Throws InvalidParametersException for a constant or a size that
  /// cannot be computed.
  virtual u64 memory_needed() const = 0;
  /// Bytes of the digit files on the disk, headers aside; 0 when none are written.
  u64 output_bytes() const { return output_bytes_of(10) + output_bytes_of(16); }
  u64 output_bytes_of(orl::u32 radix) const;

  /// Copies what both modes share.
  void copy_shared(const ComputeParameters& other);

  bool output_digits = true;
  bool verify_conversion = true;
  bool overwrite = false;        ///< digit files with more digits than the run makes may be replaced
  std::optional<bool> pi_proof;  ///< the BBP check of Pi; by itself where it costs less than 5 % of the run
  bool json_results = false;     ///< a file of results for scripts beside the validation file
  orl::Parallelism parallelism;
  std::unique_ptr<orl::MemoryAllocator> allocator;

 protected:
  /// The keys of this mode alone, as an action file and as a dump hold them.
  virtual void write_mode_settings(orl::Object&) const {}
  virtual void read_mode_settings(const orl::Object&) {}
  virtual void dump_mode_settings(orl::Object&) const {}

 private:
  void digits_changed();
  orl::Object dump_memory() const;

  std::unique_ptr<Constant> constant_;
  u64 decimal_digits_ = 1000000;
  u64 hexadecimal_digits_ = 0;
  Precision precision_;
  u64 digits_per_file_ = 0;
  u64 requested_digits_per_file_ = 0;
  std::string output_path_;
};

class OutputClaim;

class RamParameters final : public ComputeParameters {
 public:
  RamParameters();
  ~RamParameters() override;
  bool check_parameters() override;
  int run(int reserved) override;
  const char* mode_name() const override { return "Ram Only"; }
  const char* mode_key() const override { return "ram"; }

  /// Working memory and tables. Throws InvalidParametersException for a constant or a size that cannot be
  /// computed.
  u64 required_bytes() const;
  u64 memory_needed() const override { return required_bytes(); }

 private:
  std::unique_ptr<OutputClaim> claim_;  ///< from the check of the parameters to the end of the run
};

/// Settings of the mode on disks. They can be given, saved and loaded; the computation itself comes later.
class SwapParameters final : public ComputeParameters {
 public:
  std::string unavailable() const override;
  bool check_parameters() override;
  int run(int reserved) override;
  const char* mode_name() const override { return "Swap Mode"; }
  const char* mode_key() const override { return "swap"; }

  /// Memory to use; 0 for the default, 7/8 of the machine's.
  void set_memory_bytes(u64 bytes);
  u64 memory_setting() const { return memory_setting_; }
  u64 memory_bytes() const;

  /// Bytes that are transferred in the time of a seek. Throws InvalidParametersException "MinIO is too
  /// small." below 4096 and "MinIO is too large." from 2^63.
  void set_bytes_per_seek(u64 bytes) { bytes_per_seek_.set(bytes); }
  /// Back to the default: 1 MiB for each drive that holds data.
  void reset_bytes_per_seek() { bytes_per_seek_.reset(); }
  bool has_default_bytes_per_seek() const { return bytes_per_seek_.is_default(); }
  u64 bytes_per_seek() const { return bytes_per_seek_.value(raid); }
  /// The setting itself, for its prompt.
  orl::BytesPerSeek& bytes_per_seek_setting() { return bytes_per_seek_; }

  u64 memory_needed() const override { return memory_bytes(); }

  orl::R03::Raid03Descriptor raid;

 protected:
  void write_mode_settings(orl::Object& object) const override;
  void read_mode_settings(const orl::Object& object) override;
  void dump_mode_settings(orl::Object& object) const override;

 private:
  u64 memory_setting_ = 0;
  orl::BytesPerSeek bytes_per_seek_;
};

class ModeHolder {
 public:
  ModeHolder();
  ComputeParameters& current() { return *current_; }
  const ComputeParameters& current() const { return *current_; }
  /// "ram" or "swap"; throws InvalidParametersException "Invalid Mode: " with any other word.
  void set_mode(const std::string& word);
  /// The swap object, or throws InvalidParametersException "Option ... is not supported for this mode."
  SwapParameters& swap_for(const char* option);
  /// Null in the other mode.
  SwapParameters* swap() { return current_ == swap_.get() ? swap_.get() : nullptr; }

  /// Replaces all settings by those of the object `CustomCompute` of an action file. Throws ConfigException;
  /// nothing has changed then.
  void from_object(const orl::Object& object);

 private:
  std::unique_ptr<RamParameters> ram_;
  std::unique_ptr<SwapParameters> swap_;
  ComputeParameters* current_;
};

}  // namespace orvane
