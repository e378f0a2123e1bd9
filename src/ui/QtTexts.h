#pragma once

// Qt's own texts (the standard buttons' "Cancel", the dialogs' …) in the interface
// language: with Chinese chosen, Qt's Chinese translation is installed on the application,
// otherwise none is and Qt speaks English. Call once the application exists and before any
// window shows. False when Chinese is chosen and Qt's translation cannot be found (Qt's
// translations folder, or the bundle's Resources/translations on a Mac); Qt's texts then
// stay English.
namespace QtTexts {

bool follow();

} // namespace QtTexts
