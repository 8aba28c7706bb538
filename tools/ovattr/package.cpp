// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovserialize/stream_writer.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/forms.h"
#include "tools/ovattr/output.h"
#include "tools/ovattr/packages.h"
#include "tools/ovattr/quoted.h"
#include "tools/ovattr/values.h"

namespace ovattr {
namespace {

using ovattribute::AttributeMap;
using ovattribute::AttributeName;
using ovattribute::AttributeNamePackage;
using ovattribute::AttributeValue;

/// Writes a package or a set of them.
template <class Content>
void write_packages(const std::string& file, const Content& content) {
  about_file(output_name(file), [&] {
    Output out(file);
    out.refuse_terminal();
    ovserialize::StreamWriter writer(out.stream());
    content->write(writer);
    writer.flush();
    out.commit();
  });
}

void add_output_option(CLI::App& command, std::string& file) {
  command.add_option("-o,--output", file, "The file to write; - is standard output")
      ->option_text("FILE");
}

void collect_names(const AttributeValue& value, std::set<AttributeName>& names) {
  if (value.type() != ovattribute::ValueTypeId::typeAttributeMap) return;
  for (const AttributeMap& map : value.elements<AttributeMap>()) {
    for (const auto& entry : map) {
      names.insert(entry.first);
      collect_names(entry.second, names);
    }
  }
}

struct Create {
  std::vector<std::string> names;
  std::vector<std::string> files;
  Reading reading;
  std::string output = "-";

  void run() {
    if (names.empty() == files.empty()) {
      throw UsageError("Give either names or --from with files");
    }
    std::set<AttributeName> all;
    for (const std::string& name : names)
      all.insert(AttributeName(name));
    const PackageSetPtr known = read_packages(reading.packages);
    reading.strict = true;  // placeholders are no names
    for (const std::string& file : files) {
      reading.file = file;
      const auto source = open_source(reading, known);
      AttributeValue value;
      while (source->next(value))
        collect_names(value, all);
    }
    write_packages(output, AttributeNamePackage::create(all));
  }
};

void add_create(CLI::App& package) {
  CLI::App* command = package.add_subcommand(
      "create", "Make a package of names, from any that are given or that occur in files");
  const auto create = std::make_shared<Create>();
  command->add_option("NAME", create->names, "The names");
  command->add_option("--from", create->files, "Take the names of all maps in these files")
      ->option_text("DATAFILE...");
  add_data_options(*command, create->reading);
  add_output_option(*command, create->output);
  command->footer(
      "The package's id follows from its names: the same names make the same package anywhere.\n\n"
      "Examples:\n"
      "  ovattr package create -o names.ovp alpha_2 alpha_3 name\n"
      "  ovattr package create -o names.ovp --from order.json log.jsonl");
  command->callback([create] { create->run(); });
}

struct ShowPackage {
  std::string file;

  void run() const {
    const PackageSetPtr set = read_packages(file);
    Output out("-");
    for (const auto& package : *set) {
      std::string text = package->id().as_string() + ' ' + std::to_string(package->size()) +
                         (package->size() == 1 ? " name\n" : " names\n");
      for (const AttributeName& name : *package)
        text += "  " + plain_or_quoted(name.value()) + '\n';
      out.stream().write(text);
    }
    out.commit();
  }
};

void add_show_package(CLI::App& package) {
  CLI::App* command = package.add_subcommand("show", "Print the packages in a file: id and names");
  const auto show = std::make_shared<ShowPackage>();
  command->add_option("FILE", show->file, "The package file; - is standard input")->required();
  command->footer("Example:\n  ovattr package show names.ovp");
  command->callback([show] { show->run(); });
}

struct Union {
  std::vector<std::string> files;
  std::string output = "-";

  void run() const { write_packages(output, read_packages(files)); }
};

void add_union(CLI::App& package) {
  CLI::App* command =
      package.add_subcommand("union", "Put the packages of several files into one, each once");
  const auto all = std::make_shared<Union>();
  command->add_option("FILE", all->files, "The package files")->required();
  add_output_option(*command, all->output);
  command->footer("Example:\n  ovattr package union a.ovp b.ovp -o both.ovp");
  command->callback([all] { all->run(); });
}

}  // namespace

void add_package(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "package", "Make and show packages of names, which let names travel as numbers");
  command->require_subcommand(1);
  command->footer("Example:\n  ovattr package create -o names.ovp --from order.json");
  add_create(*command);
  add_show_package(*command);
  add_union(*command);
}

}  // namespace ovattr
