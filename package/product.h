// What programs and installers tell of themselves and of their maker. The owner's to change: the company is a guess.
#define KESTA_NAME "KESTA"
#define KESTA_COMPANY "Velmora"
#define KESTA_COPYRIGHT "Copyright (C) 2026 Velmora"
#define KESTA_SERVER_DESCRIPTION "KESTA Server"
#define KESTA_TOOL_DESCRIPTION "KESTA diagnosis"
#define KESTA_VERSION "1.6.0.0"
#define KESTA_VERSION_NUMBERS 1, 6, 0, 0
