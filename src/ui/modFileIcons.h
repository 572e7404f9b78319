#pragma once

// The pictures of the backup browser trees, by image number: 1 closed folder, 2 open folder,
// 3 to 16 file kinds (see FileKindImage). Each comes from the desktop's icon theme when it has
// one, and is otherwise drawn by the program, so every kind has a distinct, recognisable
// picture on a bare machine too. Each call makes the icon anew: keep it rather than ask again.

#include <QIcon>

// The icon of image `image` (1 to 16); any other number gives the picture of image 3.
QIcon FileKindIcon(int image);
// The program's own drawing of image `image`, whatever the theme has.
QIcon DrawnFileKindIcon(int image);
// The icon of a folder node: closed, and open where the view shows it selected.
QIcon FolderNodeIcon();
