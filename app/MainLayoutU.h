#pragma once

class TfrmMain;

// The main window's control tree as the designer laid it out: every control
// named as in the design (also as its objectName), with its size, colours
// and place. Makes the controls of `form` and fills its control fields;
// wiring the handlers is the form's own business.
void BuildMainLayout(TfrmMain& form);
