#pragma once

#include "base/Localisation.h"
#include "base/UserError.h"

namespace velmo {

/// A message can't be had from its server, since its account is in the list no more.
class AccountGone final : public UserError {
  public:
    AccountGone() : UserError(tr("The account of this message is gone.")) {}
};

}
