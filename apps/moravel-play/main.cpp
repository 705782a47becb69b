#include "elements/BuiltinElements.h"

int main() {
  qel::RegisterBuiltinElements();
}
