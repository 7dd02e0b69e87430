#include <KivServiceInterface.h>

int main()
{
    const bool sizesAgree = get_size_of_spk_info_s() == static_cast<int>(sizeof(spk_info_s));
    return sizesAgree && !GetWhetherKivDisabled() ? 0 : 1;
}
