// Boost.Log under the host logger. Compiled with the default std::string ABI (see LogBackend.h).
#include "host/log/backend/LogBackend.h"

#include <fstream>
#include <iostream>
#include <mutex>
#include <string>

#include <boost/core/null_deleter.hpp>
#include <boost/log/attributes/attribute_value_impl.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_logger.hpp>
#include <boost/make_shared.hpp>

namespace logging = boost::log;

namespace {

BOOST_LOG_ATTRIBUTE_KEYWORD(severity_kw, "Severity", unsigned)
BOOST_LOG_ATTRIBUTE_KEYWORD(channel_kw, "Channel", std::string)

// Hands each record to the capture callback, if one is set.
class CaptureBackend
    : public logging::sinks::basic_sink_backend<logging::sinks::synchronized_feeding> {
 public:
  void set(vxlog_capture_fn fn, void* context) {
    fn_ = fn;
    context_ = context;
  }
  void consume(const logging::record_view& record) {
    if (fn_ == nullptr) return;
    const auto text = logging::extract_or_default<std::string>("Message", record, std::string());
    const unsigned severity = logging::extract_or_default<unsigned>("Severity", record, 0u);
    const int indent = logging::extract_or_default<int>("Indent", record, 0);
    fn_(context_, severity, indent, text.data(), text.size());
  }

 private:
  vxlog_capture_fn fn_ = nullptr;
  void* context_ = nullptr;
};

using TextSink = logging::sinks::synchronous_sink<logging::sinks::text_ostream_backend>;
using CaptureSink = logging::sinks::synchronous_sink<CaptureBackend>;
// The channel travels on each record, like the indentation: a channel attribute of the logger
// itself would be one value shared, and replaced, by every thread that logs.
using Logger = logging::sources::severity_logger_mt<unsigned>;

struct Backend {
  std::mutex configure;
  boost::shared_ptr<TextSink> text;
  boost::shared_ptr<CaptureSink> capture;
  Logger logger;

  Backend() {
    // Records reach a file or standard error only once an output is named (the front end does
    // so when logging is enabled from the environment); captures see them regardless.
    capture = boost::make_shared<CaptureSink>();
    logging::core::get()->add_sink(capture);
  }

  static boost::shared_ptr<TextSink> makeTextSink(const char* path, size_t len) {
    auto backend = boost::make_shared<logging::sinks::text_ostream_backend>();
    if (path != nullptr && len > 0) {
      backend->add_stream(boost::make_shared<std::ofstream>(std::string(path, len), std::ios::app));
    } else {
      backend->add_stream(boost::shared_ptr<std::ostream>(&std::clog, boost::null_deleter()));
    }
    backend->auto_flush(true);
    auto sink = boost::make_shared<TextSink>(backend);
    sink->set_formatter([](const logging::record_view& record, logging::formatting_ostream& out) {
      const int indent = logging::extract_or_default<int>("Indent", record, 0);
      out << "[" << record[channel_kw] << "] <" << record[severity_kw] << "> "
          << std::string(static_cast<size_t>(indent > 0 ? 2 * indent : 0), ' ')
          << record[logging::expressions::smessage];
    });
    return sink;
  }
};

Backend& backend() {
  static Backend instance;
  return instance;
}

}  // namespace

extern "C" {

void vxlog_set_output(const char* path, size_t path_len) {
  Backend& b = backend();
  std::lock_guard<std::mutex> lock(b.configure);
  if (b.text) logging::core::get()->remove_sink(b.text);
  b.text = Backend::makeTextSink(path, path_len);
  logging::core::get()->add_sink(b.text);
}

void vxlog_write(const char* channel, size_t channel_len, unsigned severity, int indent,
                 const char* text, size_t text_len) {
  Backend& b = backend();
  logging::record record = b.logger.open_record(logging::keywords::severity = severity);
  if (!record) return;
  auto& values = record.attribute_values();
  values.insert("Channel",
                logging::attributes::make_attribute_value(std::string(channel, channel_len)));
  values.insert("Indent", logging::attributes::make_attribute_value(indent));
  logging::record_ostream stream(record);
  stream.write(text, static_cast<std::streamsize>(text_len));
  stream.flush();
  b.logger.push_record(std::move(record));
}

void vxlog_set_capture(vxlog_capture_fn fn, void* context) {
  Backend& b = backend();
  // The sink's own lock serialises this with the records being fed to it.
  b.capture->locked_backend()->set(fn, context);
}

void vxlog_flush(void) { logging::core::get()->flush(); }

}  // extern "C"
