// What programs and installers say about themselves and their maker. For the owner to change: the company is a guess.
#define KESTA_NAME "KESTA"
#define KESTA_COMPANY "Velmora"
#define KESTA_COPYRIGHT "Copyright (C) 2026 Velmora"
#define KESTA_SERVER_DESCRIPTION "KESTA Server"
#define KESTA_TOOL_DESCRIPTION "KESTA diagnosis"
#define KESTA_HOST_DESCRIPTION "KESTA sample host"
#define KESTA_PANES_DESCRIPTION "KESTA sample host with three controls"
#define KESTA_VERSION "1.6.0.0"
#define KESTA_VERSION_NUMBERS 1, 6, 0, 0
