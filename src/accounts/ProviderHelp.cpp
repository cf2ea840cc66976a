#include "accounts/ProviderHelp.h"

#include "base/Localisation.h"

#include <array>
#include <cstddef>

namespace velmo {

namespace {

/// The texts of one provider; null where it has none.
struct HelpRow {
    MailProvider provider;
    const char* pickerLine;
    const char* first;
    const char* second;
    const char* note;
    const char* linkLabel;
    const char* link;
};

constexpr const char* keptInKeychain = "Velmo-Mail keeps the password in your Mac's keychain.";

constexpr std::array<HelpRow, allMailProviders.size()> helps{{
    {MailProvider::google, "Gmail and Google Workspace accounts, with an app password.",
     "Gmail needs an app password, not your Google password. 2‑Step Verification has to be on before Google offers "
     "one. "
     "Paste it as shown; the spaces don't matter. ",
     nullptr, nullptr, "Open Google app passwords", "https://myaccount.google.com/apppasswords"},
    {MailProvider::microsoft, "Outlook.com, Hotmail, Live and Microsoft 365 sign in with Microsoft.",
     "Email is optional: it only picks the account Microsoft's page starts with; the address comes from the sign-in. ",
     "Velmo-Mail keeps only the sign-in Microsoft gives it, in the keychain; never your Microsoft password.",
     "Before signing in, make sure the account lets apps use IMAP: in Outlook.com, Settings → Mail → Forwarding and "
     "IMAP "
     "→ \"Let devices and apps use IMAP\" must be on. New accounts start with it off, and Microsoft may keep it off "
     "for "
     "a day or two.",
     "Open Outlook.com settings", "https://outlook.live.com/mail/0/options/mail/forwarding"},
    {MailProvider::icloud, "iCloud Mail, including me.com and mac.com addresses.",
     "iCloud Mail needs an app-specific password, not your Apple Account password. In your Apple Account, open Sign-In "
     "and Security → App-Specific Passwords. ",
     nullptr, nullptr, "Open Apple Account", "https://account.apple.com/account/manage"},
    {MailProvider::yahoo, "Yahoo Mail accounts, with an app password.",
     "Yahoo needs an app password, not your regular password. In Account Security, choose Generate app password. ",
     nullptr, nullptr, "Open Yahoo account security", "https://login.yahoo.com/account/security"},
    {MailProvider::aol, "AOL Mail accounts, with an app password.",
     "AOL needs an app password, not your regular password. In Account Security, choose Generate app password. ",
     nullptr, nullptr, "Open AOL account security", "https://login.aol.com/account/security"},
    {MailProvider::fastmail, "Fastmail accounts, including your own domains.",
     "Fastmail needs an app password. In Fastmail, open Settings → Privacy & Security → Manage app passwords, and give "
     "it "
     "IMAP and SMTP access. ",
     nullptr, nullptr, "Open Fastmail settings", "https://app.fastmail.com/settings/security"},
    {MailProvider::zoho, "Zoho Mail accounts, with an app-specific password.",
     "Zoho needs an app-specific password, not your regular password. Make one under Security → App Passwords in your "
     "Zoho account. ",
     nullptr, "Also check IMAP access is on in Zoho Mail, under Settings → Mail Accounts → IMAP.", "Open Zoho security",
     "https://accounts.zoho.com/home#security/app_password"},
    {MailProvider::other, "Any account that offers IMAP and SMTP.",
     "Use the address and password for your mail account. ",
     "Velmo-Mail works out the servers from your address; if they're wrong, change them under server settings. ",
     nullptr, nullptr, nullptr},
}};

const HelpRow& rowOf(MailProvider provider) {
    return helps[static_cast<std::size_t>(provider)];
}

std::optional<std::string> translated(const char* text) {
    if (text == nullptr) return std::nullopt;
    return tr(text);
}

}

ProviderHelp providerHelp(MailProvider provider) {
    const auto& row = rowOf(provider);
    ProviderHelp help;
    help.pickerLine = tr(row.pickerLine);
    help.paragraph = tr(row.first) + translated(row.second).value_or("");
    if (signInKind(provider) != SignInKind::oauth) help.paragraph += tr(keptInKeychain);
    help.note = translated(row.note);
    help.linkLabel = translated(row.linkLabel);
    return help;
}

std::optional<std::string> helpURL(MailProvider provider) {
    const char* link = rowOf(provider).link;
    if (link == nullptr) return std::nullopt;
    return link;
}

}
