// Writes one JSON value, indented by two blanks, members in the order in which they are given.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace bmtree::tools {

//   JsonWriter json;
//   json.beginObject();
//   json.field("name", tree.name());
//   json.key("numbers").beginArray();
//   for (uint64_t number : numbers) json.value(number);
//   json.end();                                          // the array
//   json.end();                                          // the object
//   output.write(json.text());
class JsonWriter {
 public:
  void beginObject() { open('{', '}'); }
  void beginArray() { open('[', ']'); }
  // Ends the object or array that was begun last. The end of the outermost one ends the line.
  void end();

  // Names the member that comes next.
  JsonWriter& key(std::string_view name);

  void value(std::string_view text);
  void value(const char* text) { value(std::string_view(text)); }
  void value(bool truth) { item(truth ? "true" : "false"); }
  void value(double number);
  template <std::integral Integer>
  void value(Integer number) {
    item(std::to_string(number));
  }
  void null() { item("null"); }

  template <class Value>
  void field(std::string_view name, const Value& content) {
    key(name).value(content);
  }

  // What was written since the last call of take(); to be called in between when the value is large.
  std::string take();
  const std::string& text() const { return text_; }

 private:
  struct Level {
    char closing;
    bool empty = true;
  };

  void open(char opening, char closing);
  void item(std::string_view text);
  void startItem();

  std::string text_;
  std::vector<Level> levels_;
  bool afterKey_ = false;
};

}  // namespace bmtree::tools
