// Loads the copy of the set's configuration that the registry keeps, once per serial thread and only when one was ever
// stored, so that the set can be tracked at once while the PBX sends the configuration again.
#pragma once

// Fills the key lists from section Set_Des. Gives the number of multi-line keys.
int LoadSetDes();
// The whole load; run by the tick. Gives 0.
int InitDatas();
