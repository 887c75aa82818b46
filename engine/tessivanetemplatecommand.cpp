#include "tessivanetemplatecommand.h"

// Defined here so that the vtable and type information live in the library.
TessivaneTemplateCommand::~TessivaneTemplateCommand() = default;
